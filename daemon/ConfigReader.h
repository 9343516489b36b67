#ifndef CORVANE_DAEMON_CONFIGREADER_H
#define CORVANE_DAEMON_CONFIGREADER_H

// One table of a configuration, read key by key; what is wrong is collected, each with its place:
//
//     Faults faults("milter.toml");
//     {
//         TableReader table(root, "scan", faults);
//         table.number("threshold", config.scan.threshold, {-1000, 1000});
//     } // whatever keys nobody asked for are faults now
//     faults.raise();
//
// Threads: one.

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <toml++/toml.h>

namespace Corvane::Milter {

class Faults {
public:
    explicit Faults(std::string file) : file_(std::move(file)) {}

    void add(const toml::source_region &place, const std::string &sentence);

    // Throws ConfigError with all of them, in the order of their lines, if there are any.
    void raise() const;

private:
    struct Fault {
        unsigned int line;
        unsigned int column;
        std::string sentence;
    };

    std::string file_;
    std::vector<Fault> faults_;
};

class TableReader {
public:
    // A null table has no keys: everything keeps its default. name is how the table is written in
    // the file, "" for the whole of it.
    TableReader(const toml::table *table, std::string name, Faults &faults)
        : table_(table), name_(std::move(name)), faults_(faults) {}
    TableReader(const TableReader &) = delete;
    TableReader &operator=(const TableReader &) = delete;
    // Keys that nobody asked for are faults.
    ~TableReader();

    // Each of these sets the value where the key is there and right.
    void flag(const std::string &key, bool &value);
    void text(const std::string &key, std::string &value);
    void texts(const std::string &key, std::vector<std::string> &value);

    // Both ends may be reached; unit stands in the fault, such as "seconds".
    struct Range {
        double least;
        double most;
        const char *unit = "";
    };
    std::optional<double> number(const std::string &key, const Range &range);
    void number(const std::string &key, float &value, const Range &range);
    void count(const std::string &key, unsigned int &value, const Range &range);

    // One of a few words, whose place in the list is answered.
    std::optional<std::size_t> word(const std::string &key, const std::vector<std::string> &words);

    // The table below the key; null where there is none. And a list of tables.
    const toml::table *table(const std::string &key);
    std::vector<const toml::table *> tables(const std::string &key);

    // Adds a fault at the key's value.
    void refuse(const std::string &key, const std::string &sentence);

    bool has(const std::string &key) const;

private:
    const toml::node *find(const std::string &key);
    std::string shown(const std::string &key) const;

    const toml::table *table_;
    std::string name_;
    Faults &faults_;
    std::set<std::string> known_;
};

} // namespace Corvane::Milter

#endif
