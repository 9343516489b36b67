#include "host/parser/MailReader.h"

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/parser/Exception.h"
#include "host/parser/HeaderBlock.h"
#include "host/parser/MailText.h"
#include "host/parser/MessageHeaders.h"
#include "host/parser/MimeStructure.h"
#include "host/parser/UriScan.h"

namespace Corvane {

namespace {

Exception s_readFailure(const std::string &path, int error, unsigned int line) {
    Exception failure("MailReader::read", Exception::kGeneral, "MailReader", line);
    failure.stringParameter(path + ": " + std::generic_category().message(error));
    return failure;
}

// An open file, closed when it goes.
class Descriptor {
public:
    explicit Descriptor(const std::string &path)
        : number_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        if (number_ < 0) {
            throw s_readFailure(path, errno, __LINE__);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    ~Descriptor() { ::close(number_); }

    int number() const { return number_; }

    // Size of a regular file, 0 for anything else.
    std::size_t expectedBytes() const {
        struct stat status {};
        const bool regular = ::fstat(number_, &status) == 0 && S_ISREG(status.st_mode);
        return regular ? static_cast<std::size_t>(status.st_size) : 0;
    }

private:
    int number_;
};

// The first maxBytes of a file.
std::string s_readFile(const std::string &path, std::size_t maxBytes) {
    constexpr std::size_t kStepBytes = 64U << 10U;
    const Descriptor file(path);
    std::string bytes;
    std::size_t length = 0;
    // One byte more than expected, so that the end of the file shows without another round.
    bytes.resize(std::min(std::max(file.expectedBytes() + 1, kStepBytes), maxBytes));
    while (length < maxBytes) {
        if (length == bytes.size()) {
            bytes.resize(std::min(2 * length, maxBytes));
        }
        const ssize_t count = ::read(file.number(), bytes.data() + length, bytes.size() - length);
        if (count < 0 && errno != EINTR) {
            throw s_readFailure(path, errno, __LINE__);
        }
        if (count == 0) {
            break;
        }
        length += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    bytes.resize(length);
    return bytes;
}

// One message while it is read.
class Reading {
public:
    Reading(std::string_view message, const MailLimits &limits)
        : message_(message), limits_(limits), uris_(limits, hits_) {}

    Mail mail();

private:
    Ref<MPartAttribute> rawBody(std::size_t start);

    std::string_view message_;
    const MailLimits &limits_;
    MailLimitSet hits_;
    UriCollector uris_;
};

Ref<MPartAttribute> Reading::rawBody(std::size_t start) {
    const std::size_t most = std::size_t{1} + limits_.value(MailLimit::RawBodyBytes);
    const std::string_view received = message_.substr(start, most);
    if (received.size() < most && received.ends_with('\n')) {
        const Buffer bytes(received.data(), static_cast<unsigned int>(received.size()), false);
        return Ref<MPartAttribute>(new MPartText("", bytes, 0));
    }
    std::string body(received);
    boundText(body, limits_, MailLimit::RawBodyBytes, hits_);
    const Buffer bytes(body.data(), static_cast<unsigned int>(body.size()), false);
    return Ref<MPartAttribute>(new MPartText("", bytes, 0));
}

Mail Reading::mail() {
    if (message_.empty()) {
        const Ref<MimePart> none(static_cast<MimePart *>(nullptr));
        return {RefMessageProperties::create(RefHeaderList(true), none), EmailAddress(), hits_};
    }
    if (message_.size() > limits_.value(MailLimit::MessageBytes)) {
        hits_.insert(MailLimit::MessageBytes);
        message_ = message_.substr(0, limits_.value(MailLimit::MessageBytes));
    }
    LineReader lines(message_);
    skipEnvelope(lines);
    MessageHeaders headers(limits_, hits_, uris_);
    readHeaderBlock(
        lines, [](std::string_view) { return false; },
        [&headers](const ReceivedHeader &header) { headers.take(header); });
    const RefHeaderList list = headers.list();

    const Ref<MimePart> part(new MimePart);
    MimeStructure structure(headers.content(), lines, limits_, hits_);
    MailText text(limits_, hits_, uris_);
    text.take(structure);
    text.addTo(*part);
    part->attr(MPartAttribute::RawText, rawBody(lines.offset()));
    part->attr(MPartAttribute::Uris, uris_.attribute());
    const Header returnPath = list.find("Return-Path");
    Mail mail(RefMessageProperties::create(list, part),
              EmailAddress::rfc5322Parse(returnPath.value(), true), hits_);
    mail.disguise(text.disguise());
    return mail;
}

} // namespace

Mail::Mail(const RefMessageProperties &properties, const EmailAddress &sender,
           const MailLimitSet &limitsHit)
    : properties_(properties), sender_(sender), limitsHit_(limitsHit) {}

Mail::Mail(const Mail &) = default;
Mail::Mail(Mail &&) noexcept = default;
Mail &Mail::operator=(const Mail &) = default;
Mail &Mail::operator=(Mail &&) noexcept = default;
Mail::~Mail() = default;

MailReader::MailReader(const MailLimits &limits) : limits_(limits) {}

Mail MailReader::read(const void *data, std::size_t length) const {
    return Reading({static_cast<const char *>(data), length}, limits_).mail();
}

Mail MailReader::read(std::string_view message) const {
    return Reading(message, limits_).mail();
}

Mail MailReader::read(const Buffer &message) const {
    return read(message.data(), message.length());
}

Mail MailReader::read(const File::Path &path) const {
    // One byte more than is read on, so that a longer file is noticed.
    const std::string message =
        s_readFile(path.asString(), std::size_t{1} + limits_.value(MailLimit::MessageBytes));
    return read(std::string_view(message));
}

} // namespace Corvane
