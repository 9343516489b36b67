#ifndef CORVANE_CORPUS_DATABASE_H
#define CORVANE_CORPUS_DATABASE_H

// A file of SQLite's.
//
//     Database database(path, Database::Mode::Read);
//     Statement statement(database, "SELECT name FROM rule WHERE score > ?");
//     statement.with(2.5);
//     while (statement.step()) { use(statement.text(0)); }
//
// All throw CorpusError, with the file and what SQLite says, where something fails.
//
// Threads: one at a time.

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

struct sqlite3;
struct sqlite3_stmt;

namespace Corvane::Corpus {

class Database {
public:
    // Read: a file that is there, for reading alone. Write: one that is there, locked for this
    // process. Create: a new one; what is there is refused. Without a path, in memory.
    enum class Mode { Read, Write, Create };

    Database(const std::string &path, Mode mode);
    Database(const Database &) = delete;
    Database &operator=(const Database &) = delete;
    ~Database();

    const std::string &path() const { return path_; }

    // Runs statements that answer nothing.
    void run(const std::string &statements);

    // The first column of a query's only row; 0 where it has none.
    std::int64_t integer(const std::string &query);

    // The number of the row that was inserted last.
    std::int64_t lastRow() const;

    // Closes the file. The object is of no use then. Throws where what was written did not arrive.
    void close();

    [[noreturn]] void fail(const std::string &doing) const;

private:
    friend class Statement;

    struct Closer {
        void operator()(sqlite3 *file) const;
    };

    std::string path_;
    std::unique_ptr<sqlite3, Closer> file_;
};

// One statement, which may be run many times. The database must outlive it.
class Statement {
public:
    Statement(Database &database, const std::string &text);
    Statement(const Statement &) = delete;
    Statement &operator=(const Statement &) = delete;
    ~Statement();

    // Sets the parameters, in their order, to numbers and texts, which are copied. They stay until
    // they are set anew.
    template <class... Values>
    Statement &with(const Values &...values) {
        int parameter = 0;
        (set(++parameter, values), ...);
        return *this;
    }

    // Goes to the next row; false behind the last one, when the statement can be run again.
    bool step();

    // Runs a statement that answers no rows.
    void run();

    // Columns of the row count from 0. A text is good until the next step.
    std::int64_t integer(int column) const;
    double real(int column) const;
    std::string_view text(int column) const;

private:
    struct Finaliser {
        void operator()(sqlite3_stmt *statement) const;
    };

    template <class Value>
    void set(int parameter, const Value &value) {
        if constexpr (std::is_convertible_v<const Value &, std::string_view>) {
            bind(parameter, std::string_view(value));
        } else if constexpr (std::is_floating_point_v<Value>) {
            bind(parameter, static_cast<double>(value));
        } else {
            bind(parameter, static_cast<std::int64_t>(value));
        }
    }
    void bind(int parameter, std::int64_t value);
    void bind(int parameter, double value);
    void bind(int parameter, std::string_view text);

    Database &database_;
    std::unique_ptr<sqlite3_stmt, Finaliser> statement_;
};

// What is done while it lives is done as a whole by commit(), or not at all.
class Transaction {
public:
    explicit Transaction(Database &database);
    Transaction(const Transaction &) = delete;
    Transaction &operator=(const Transaction &) = delete;
    ~Transaction();

    void commit();

private:
    Database &database_;
    bool isOpen_ = true;
};

} // namespace Corvane::Corpus

#endif
