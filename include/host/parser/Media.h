#ifndef CORVANE_HOST_PARSER_MEDIA_H
#define CORVANE_HOST_PARSER_MEDIA_H

// Byte streams: from a file (FileMediaIn), into a temporary file (TempFileMediaOut), and through
// stages that change the bytes on their way (MediaOutDecorator):
//
//     FileMediaIn in(path);
//     TempFileMediaOut out("/var/spool/tmp/ruleXXXXXX", true);
//     stage.attach(out);
//     for (in.read(piece, 512); !piece.isEmpty(); in.read(piece, 512)) {
//         stage.write(piece);
//     }
//     stage.end();
//     out.end();
//
// Output streams are handles: a copy, also one as plain MediaOut, feeds the same sink, which dies
// with its last handle. Whatever fails throws Exception, code 4; using an empty handle throws
// code 1.
//
// Threads: one stream and all handles on it are for one thread at a time.

#include <string>

#include "host/include2/TesselRefcounted.h"
#include "host/parser/Buffer.h"
#include "host/parser/Export.h"

namespace Corvane {

// A source of bytes.
class CORVANE_PARSER_API MediaIn {
public:
    virtual ~MediaIn();

    // Replaces the content of bytes by the next max bytes. Fewer are given only at the end, none
    // behind it (and for max = 0). Throws where the source cannot be read.
    virtual void read(Buffer &bytes, unsigned int max) = 0;

protected:
    MediaIn() = default;
    MediaIn(const MediaIn &) = default;
    MediaIn &operator=(const MediaIn &) = default;
};

// Reads a file from its start; the file stays open as long as the object lives.
class CORVANE_PARSER_API FileMediaIn : public MediaIn {
public:
    // Throws, with the path and the system's reason, where the file cannot be opened or is a
    // directory.
    explicit FileMediaIn(const std::string &path);
    FileMediaIn(const FileMediaIn &) = delete;
    FileMediaIn &operator=(const FileMediaIn &) = delete;
    ~FileMediaIn() override;

    void read(Buffer &bytes, unsigned int max) override;

private:
    std::string path_;
    int descriptor_;
};

// What stands behind a MediaOut; derive from it to make a sink of another kind. A sink need not be
// prepared for writes after end().
class CORVANE_PARSER_API MediaOutImpl : public RefImpl {
public:
    MediaOutImpl(const MediaOutImpl &) = delete;
    MediaOutImpl &operator=(const MediaOutImpl &) = delete;
    ~MediaOutImpl() override;

    // Takes all the bytes or throws. They are borrowed for the call, and may be a view: a sink that
    // keeps them makes a copy of its own.
    virtual void write(const Buffer &bytes) = 0;

    // Nothing more comes. May be called again.
    virtual void end() = 0;

protected:
    MediaOutImpl() = default;
};

// A handle on a sink.
class CORVANE_PARSER_API MediaOut : public Ref<MediaOutImpl> {
public:
    // An empty handle.
    MediaOut() = default;

    // Takes over a fresh sink.
    explicit MediaOut(MediaOutImpl *fresh);

    // Hands all the bytes to the sink, which does not keep the buffer.
    void write(const Buffer &bytes);

    // Finishes the sink after the last write: only then have all bytes arrived where they belong.
    // Ending twice is harmless.
    void end();
};

// What stands behind a MediaOutDecorator: changes the bytes written to it and passes them on.
class CORVANE_PARSER_API MediaOutDecoratorImpl : public MediaOutImpl {
public:
    ~MediaOutDecoratorImpl() override;

    // As MediaOutDecorator::attach().
    void attach(const MediaOut &output) { output_ = output; }

protected:
    // The attached output; empty before attach().
    MediaOut &output() { return output_; }

private:
    MediaOut output_;
};

// A handle on a stage in front of another output.
class CORVANE_PARSER_API MediaOutDecorator : public MediaOut {
public:
    // Takes over a fresh stage.
    explicit MediaOutDecorator(MediaOutDecoratorImpl *fresh);

    // Sends what the stage gives from now on to output, which must not lead back to this stage.
    // Keeps a handle on it until the stage dies or another output is attached. Ending the stage
    // does not end the output.
    void attach(const MediaOut &output);
};

// A file of its own for one program, which goes with the last handle on it.
class CORVANE_PARSER_API TempFile : public virtual RefImpl {
public:
    // Creates and opens a file: pattern is a path that ends in "XXXXXX", which a unique suffix
    // replaces. Only the user of this process may read it, and programs started by this process do
    // not inherit it. A directory that is missing is created, but not its parents, for all users to
    // share as they share /tmp (mode 1777).
    //
    // Throws, with the directory, the system's reason and the remedy, where that is impossible; no
    // other directory is tried. remove = false leaves the file in place for good.
    TempFile(const std::string &pattern, bool remove);
    TempFile(const TempFile &) = delete;
    TempFile &operator=(const TempFile &) = delete;
    ~TempFile() override;

    // The path of the file; lives as long as this object.
    const std::string &name() const { return name_; }

    // Appends all the bytes. Throws as the constructor does, and after close().
    void write(const Buffer &bytes);

    // Ends writing; the file stays and can be read by its name. Throws where the system reports a
    // write that failed late. Closing again does nothing.
    void close();

private:
    std::string name_;
    bool remove_;
    int descriptor_;
};

// An output stream into a temporary file. end() and close() both close the file.
class CORVANE_PARSER_API TempFileMediaOut : public MediaOut {
public:
    // As TempFile's constructor; with remove = true the file goes when this stream, its copies and
    // all handles from tmpfile() are gone.
    TempFileMediaOut(const std::string &pattern, bool remove);

    // A handle on the file.
    Ref<TempFile> tmpfile() const { return file_; }

    void close();

private:
    explicit TempFileMediaOut(const Ref<TempFile> &file);

    Ref<TempFile> file_;
};

} // namespace Corvane

#endif
