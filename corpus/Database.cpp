#include "Database.h"

#include <filesystem>

#include <sqlite3.h>

#include "CorpusError.h"

namespace Corvane::Corpus {

namespace {

int s_flags(Database::Mode mode) {
    switch (mode) {
    case Database::Mode::Read:
        return SQLITE_OPEN_READONLY;
    case Database::Mode::Write:
        return SQLITE_OPEN_READWRITE;
    default:
        return SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
    }
}

} // namespace

void Database::Closer::operator()(sqlite3 *file) const {
    sqlite3_close_v2(file);
}

Database::Database(const std::string &path, Mode mode) : path_(path) {
    std::error_code ignored;
    if (mode == Mode::Create && std::filesystem::exists(path, ignored)) {
        throw CorpusError("'" + path + "' is there already; remove it or give another name");
    }
    if (mode == Mode::Read && !std::filesystem::exists(path, ignored)) {
        throw CorpusError("'" + path + "' does not exist; name a result of 'corvane corpus run'");
    }
    sqlite3 *file = nullptr;
    const int result =
        sqlite3_open_v2(path.empty() ? ":memory:" : path.c_str(), &file, s_flags(mode), nullptr);
    file_.reset(file);
    if (result != SQLITE_OK) {
        fail("open");
    }
    if (mode != Mode::Read) {
        run("PRAGMA locking_mode = EXCLUSIVE; PRAGMA synchronous = NORMAL");
    }
}

Database::~Database() = default;

void Database::run(const std::string &statements) {
    if (sqlite3_exec(file_.get(), statements.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        fail("use");
    }
}

std::int64_t Database::integer(const std::string &query) {
    Statement statement(*this, query);
    std::int64_t value = 0;
    while (statement.step()) {
        value = statement.integer(0);
    }
    return value;
}

std::int64_t Database::lastRow() const {
    return sqlite3_last_insert_rowid(file_.get());
}

void Database::close() {
    if (sqlite3_close(file_.get()) != SQLITE_OK) {
        fail("close");
    }
    (void)file_.release();
}

void Database::fail(const std::string &doing) const {
    const int code = file_ != nullptr ? sqlite3_errcode(file_.get()) : SQLITE_NOMEM;
    const std::string called = path_.empty() ? "a result in memory" : "'" + path_ + "'";
    if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
        throw CorpusError(called + " is in use by another process; wait for it to end");
    }
    if (code == SQLITE_NOTADB) {
        throw CorpusError(called + " is no result of 'corvane corpus run'");
    }
    const std::string reason =
        file_ != nullptr ? sqlite3_errmsg(file_.get()) : sqlite3_errstr(code);
    throw CorpusError("cannot " + doing + ' ' + called + ": " + reason);
}

void Statement::Finaliser::operator()(sqlite3_stmt *statement) const {
    sqlite3_finalize(statement);
}

Statement::Statement(Database &database, const std::string &text) : database_(database) {
    sqlite3_stmt *statement = nullptr;
    const int result = sqlite3_prepare_v2(database.file_.get(), text.c_str(),
                                          static_cast<int>(text.size()), &statement, nullptr);
    statement_.reset(statement);
    if (result != SQLITE_OK) {
        database_.fail("read");
    }
}

Statement::~Statement() = default;

void Statement::bind(int parameter, std::int64_t value) {
    if (sqlite3_bind_int64(statement_.get(), parameter, value) != SQLITE_OK) {
        database_.fail("write");
    }
}

void Statement::bind(int parameter, double value) {
    if (sqlite3_bind_double(statement_.get(), parameter, value) != SQLITE_OK) {
        database_.fail("write");
    }
}

void Statement::bind(int parameter, std::string_view text) {
    if (sqlite3_bind_text64(statement_.get(), parameter, text.data() != nullptr ? text.data() : "",
                            text.size(), SQLITE_TRANSIENT, SQLITE_UTF8) != SQLITE_OK) {
        database_.fail("write");
    }
}

bool Statement::step() {
    const int result = sqlite3_step(statement_.get());
    if (result == SQLITE_ROW) {
        return true;
    }
    if (sqlite3_reset(statement_.get()) != SQLITE_OK || result != SQLITE_DONE) {
        database_.fail("use");
    }
    return false;
}

void Statement::run() {
    while (step()) {
    }
}

std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(statement_.get(), column);
}

double Statement::real(int column) const {
    return sqlite3_column_double(statement_.get(), column);
}

std::string_view Statement::text(int column) const {
    const unsigned char *bytes = sqlite3_column_text(statement_.get(), column);
    return bytes == nullptr ? std::string_view()
                            : std::string_view(reinterpret_cast<const char *>(bytes),
                                               static_cast<std::size_t>(
                                                   sqlite3_column_bytes(statement_.get(), column)));
}

Transaction::Transaction(Database &database) : database_(database) {
    database_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (isOpen_) {
        try {
            database_.run("ROLLBACK");
        } catch (const CorpusError &) {
            // SQLite has done it already, or does so when the file is opened next.
            isOpen_ = false;
        }
    }
}

void Transaction::commit() {
    database_.run("COMMIT");
    isOpen_ = false;
}

} // namespace Corvane::Corpus
