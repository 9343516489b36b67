#ifndef CORVANE_HOST_PARSER_FILE_H
#define CORVANE_HOST_PARSER_FILE_H

// File names, the files of a directory by name pattern, and reading of text files line by line:
//
//     File::basic_ifstream<char> stream(File::Path("/etc/rules", "a.cf"));
//     char line[16384];
//     while (const int read = File::getline(stream, line, sizeof line)) {
//         use(line, read - 1);
//     }
//
// Threads: a path may be read by many threads at once; a selector or a stream is for one at a time.

#include <fstream>
#include <istream>
#include <list>
#include <string>

#include "host/parser/Export.h"

namespace Corvane {
namespace File {

// The name of a file or directory, kept as it was given: neither "//" nor ".." is resolved.
class CORVANE_PARSER_API Path {
public:
    explicit Path(const std::string &text);

    // Joins the two with one "/": one that ends the directory or begins the name is not doubled. An
    // empty part adds nothing.
    Path(const std::string &directory, const std::string &name);

    // The text, and the same as a C string that lives as long as this path.
    const std::string &asString() const { return text_; }
    operator const char *() const { return text_.c_str(); }

    // Whether there is something of that name, and whether that is a directory. Symbolic links are
    // followed; what may not be looked at counts as absent.
    bool exists() const;
    bool isDirectory() const;

private:
    std::string text_;
};

// Receives the files that a Selector finds.
class CORVANE_PARSER_API Processor {
public:
    virtual ~Processor();

    // Called once per file; the path lives for the call. The answer (0 by custom) has no effect.
    // What it throws ends the walk.
    virtual int process(const Path &file) = 0;

    // Called instead for a symbolic link that leads to no file, with the system's number of the
    // reason. Does nothing unless it is overridden; what it throws ends the walk.
    virtual void linkBroken(const Path &file, int error);

protected:
    Processor() = default;
    Processor(const Processor &) = default;
    Processor &operator=(const Processor &) = default;
};

// Visits the regular files of one directory whose names match a pattern.
class CORVANE_PARSER_API Selector {
public:
    // processor is borrowed and must outlive the selector. Without patterns nothing is visited.
    Selector(const Path &directory, Processor &processor);

    // Replaces the patterns: shell style ("*.cf", "[ab]?.score"), in the letter case given. A
    // leading dot of a name must be matched by a dot.
    void patterns(const std::list<std::string> &patterns);

    // The names that match a pattern, in the order in which start() visits the files of those names.
    // names must be in byte order.
    static std::list<std::string> choose(std::list<std::string> names,
                                         const std::list<std::string> &patterns);

    // Visits the files of the first pattern, then those of the second, and so on; for one pattern
    // in the byte order of their names. A file that several patterns match is visited once, for the
    // first. Symbolic links are followed, subdirectories are not entered. The directory is read
    // and closed before the first visit; what is gone by its turn is passed over.
    //
    // A missing directory has no files. Throws code 4, with path and reason, where the directory or
    // the kind of a matching file cannot be read; passes on what the processor throws.
    void start();

private:
    std::list<std::string> entries() const;
    void visit(const std::string &name);

    Path directory_;
    Processor &processor_;
    std::list<std::string> patterns_;
};

// Reads one line into buffer, which has room for max bytes, and ends it with a NUL byte. The line
// end, LF or CR LF, is taken but not stored; any other CR, and every NUL byte, is text. The last
// line needs no line end. Of a line with more than max-1 bytes of text the rest is dropped.
//
// Answers the bytes stored plus 1, whatever the line end was: 1 for an empty line, max for one that
// was cut or just fits. Answers 0, and stores nothing, at the end of the stream (end-of-file and
// fail bits set, as std::getline does), on a stream that is not good, and where max < 1.
//
// Throws code 4 with the reason where the stream cannot be read, as is a std::ifstream on a
// directory; the bad bit is set, and the line begun is lost.
CORVANE_PARSER_API int getline(std::istream &stream, char *buffer, int max);

// The file streams of the C++ library, opened by path. Where opening fails, as the C++ library's
// does not for reading a directory, is_open() is false and the fail bit is set; nothing is thrown.
template <class Char>
class CORVANE_PARSER_API basic_ifstream : public std::basic_ifstream<Char> {
public:
    // Without a path: not open.
    basic_ifstream() = default;
    explicit basic_ifstream(const Path &path, std::ios_base::openmode mode = std::ios_base::in) {
        open(path, mode);
    }

    void open(const Path &path, std::ios_base::openmode mode = std::ios_base::in) {
        if (path.isDirectory()) {
            this->setstate(std::ios_base::failbit);
        } else {
            std::basic_ifstream<Char>::open(path.asString(), mode);
        }
    }
};

template <class Char>
class CORVANE_PARSER_API basic_ofstream : public std::basic_ofstream<Char> {
public:
    // Without a path: not open.
    basic_ofstream() = default;
    explicit basic_ofstream(const Path &path, std::ios_base::openmode mode = std::ios_base::out) {
        open(path, mode);
    }

    void open(const Path &path, std::ios_base::openmode mode = std::ios_base::out) {
        std::basic_ofstream<Char>::open(path.asString(), mode);
    }
};

} // namespace File
} // namespace Corvane

#endif
