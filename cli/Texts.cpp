#include "Texts.h"

#include <array>
#include <iomanip>
#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

#include "ExitStatus.h"
#include "Failure.h"
#include "MessageSource.h"
#include "Sender.h"
#include "corvane/Rule.h"
#include "heuristic/ScanTexts.h"
#include "host/parser/Logger.h"
#include "host/parser/MailLimits.h"
#include "host/parser/Uri.h"
#include "report/JsonBytes.h"

namespace Corvane::Cli {

namespace {

using Heuristic::HeaderForm;
using Heuristic::LanguageChoice;
using Heuristic::ScannedText;
using Heuristic::ScanTexts;
using Json = nlohmann::ordered_json;
using Source = ScannedText::Source;

constexpr std::array<const char *, 9> kTitles = {"full rules: lines as received",
                                                 "header rules: sender of the envelope",
                                                 "header rules: headers",
                                                 "body rules: Subject",
                                                 "body rules: text",
                                                 "rawbody rules: body as received",
                                                 "body rules: second text",
                                                 "uri rules: URIs",
                                                 "full rules: headers as received"};
constexpr std::array<const char *, 6> kLanguages = {"DEFAULT", "CN", "JP", "KO", "RU", "TH"};
constexpr std::array<const char *, 4> kReasons = {"no-text", "unknown-charset", "charset",
                                                  "letters"};

std::string s_bytes(const Buffer &text) {
    return {reinterpret_cast<const char *>(text.data()), text.length()};
}

// A message as a scan reads it.
struct ReadMessage {
    ReadMessage(const RawMessage &raw, const std::optional<std::string> &given)
        : limits(),
          bytes(std::string_view(raw.bytes).substr(0, limits.value(MailLimit::MessageBytes))),
          mail(MailReader(limits).read(std::string_view(raw.bytes))), sender(mail.sender()),
          choice(Heuristic::languageOf(mail.properties()->part().operator->())) {
        if (given.has_value()) {
            // As a scan takes it: "<>" is no sender, and "" an empty one.
            sender = EmailAddress::rfc5322Parse(*given, true);
            if (sender.isNull() && *given != "<>") {
                sender = EmailAddress(std::string(), *given);
            }
        }
    }

    void each(const ScanTexts::Take &take) const { ScanTexts(bytes, mail, sender).each(take); }

    MailLimits limits;
    std::string_view bytes;
    Mail mail;
    EmailAddress sender;
    LanguageChoice choice;
};

std::string s_because(const LanguageChoice &choice) {
    switch (choice.reason) {
    case LanguageChoice::Reason::NoText:
        return "it has no text";
    case LanguageChoice::Reason::Charset:
        return "its text is in " + choice.charset;
    case LanguageChoice::Reason::Letters:
        return "by the letters of its text, which is in " + choice.charset;
    default:
        return choice.charset.empty() ? "its text declares no charset"
                                      : "any language may be in " + choice.charset;
    }
}

// For people.
class TextWriter {
public:
    explicit TextWriter(std::ostream &out) : out_(out) {}

    void message(const std::string &label, const ReadMessage &message) {
        out_ << Logger::printable(label) << '\n'
             << "language: " << kLanguages.at(static_cast<std::size_t>(message.choice.language))
             << ", " << Logger::printable(s_because(message.choice)) << '\n';
        for (const MailLimit limit : message.mail.limitsHit()) {
            out_ << "cut at: " << mailLimitName(limit) << '\n';
        }
        const MailDisguise &disguise = message.mail.disguise();
        if (disguise.hiddenTextBytes > 0) {
            out_ << "hidden: " << disguise.hiddenTextBytes << " bytes of text, behind the others\n";
        }
        if (disguise.invisibleCharacters > 0) {
            out_ << "taken out: " << disguise.invisibleCharacters << " invisible characters\n";
        }
        last_.reset();
        message.each([this](const ScannedText &text) { add(text); });
    }

private:
    void add(const ScannedText &text) {
        if (!last_.has_value() || *last_ != text.source) {
            out_ << '\n' << kTitles.at(static_cast<std::size_t>(text.source)) << '\n';
            last_ = text.source;
        }
        if (text.kind == Heuristic::Rule::Header) {
            addHeader(text);
            return;
        }
        std::string place = std::to_string(text.number);
        if (text.source == Source::Uri) {
            place = Heuristic::uriSourceName(text.uriSource) + ' ' + place;
        } else if (text.piece > 1) {
            place += '.' + std::to_string(text.piece);
        }
        line(place, s_bytes(text.text));
        if (text.unread.length() > 0) {
            out_ << "          (" << text.unread.length() << " bytes behind this are not read)\n";
        }
    }

    // Of the forms those that are not plain from the others.
    void addHeader(const ScannedText &text) {
        const std::string bytes = s_bytes(text.text);
        if (text.form == HeaderForm::Value) {
            value_ = bytes;
            line(std::to_string(text.number), std::string(text.header) + ": " + bytes);
            return;
        }
        const bool isPlain = text.form == HeaderForm::All
                                 ? bytes == std::string(text.header) + ": " + value_
                                 : bytes == value_ || bytes.empty();
        if (!isPlain) {
            line(std::string(Heuristic::formName(text.form)), bytes);
        }
    }

    void line(const std::string &place, const std::string &bytes) {
        constexpr int kWidth = 8;
        out_ << std::setw(kWidth) << place << "  " << Logger::printable(bytes) << '\n';
    }

    std::ostream &out_;
    std::optional<Source> last_;
    std::string value_;
};

Json s_jsonOf(const ScannedText &text) {
    Json json;
    json["kind"] = corvane::kindName(static_cast<corvane::RuleKind>(text.kind));
    json["source"] = Heuristic::sourceName(text.source);
    json["number"] = text.number;
    if (text.kind == Heuristic::Rule::Header || text.source == Source::WholeHeader) {
        Reporting::setBytes(json, "header", std::string(text.header));
    }
    if (text.kind == Heuristic::Rule::Header) {
        json["form"] = Heuristic::formName(text.form);
    } else if (text.source == Source::Uri) {
        json["from"] = Heuristic::uriSourceName(text.uriSource);
    } else if (text.source != Source::WholeHeader) {
        json["piece"] = text.piece;
        json["offset"] = text.offset;
        if (text.unread.length() > 0) {
            json["unread"] = text.unread.length();
        }
    }
    Reporting::setBytes(json, "text", s_bytes(text.text));
    return json;
}

std::string s_json(const RawMessage &raw, const ReadMessage &message) {
    Json json;
    json["version"] = 1;
    Reporting::setBytes(json, "file", raw.file);
    if (raw.index > 0) {
        json["index"] = raw.index;
    }
    json["language"] = kLanguages.at(static_cast<std::size_t>(message.choice.language));
    json["because"] = kReasons.at(static_cast<std::size_t>(message.choice.reason));
    Reporting::setBytes(json, "charset", message.choice.charset);
    json["limits"] = Json::array();
    for (const MailLimit limit : message.mail.limitsHit()) {
        json["limits"].push_back(mailLimitName(limit));
    }
    json["hiddenTextBytes"] = message.mail.disguise().hiddenTextBytes;
    json["invisibleCharacters"] = message.mail.disguise().invisibleCharacters;
    json["texts"] = Json::array();
    message.each([&json](const ScannedText &text) { json["texts"].push_back(s_jsonOf(text)); });
    return json.dump(-1, ' ', false, Json::error_handler_t::replace) + '\n';
}

int s_run(const TextsArguments &arguments, std::ostream &out, std::ostream &err) {
    const std::optional<std::string> sender = givenSender(arguments.sender);
    MessageSource source(arguments.messages, {}, MailLimits().value(MailLimit::MessageBytes));
    TextWriter writer(out);
    int status = kExitClean;
    bool isFirst = true;
    while (const std::optional<RawMessage> raw = source.next()) {
        const std::string label = MessageSource::label(raw->file, raw->index);
        if (!raw->failure.empty()) {
            err << "corvane: " << Logger::printable(raw->failure) << '\n';
            status = kExitFailed;
            continue;
        }
        const ReadMessage message(*raw, sender);
        if (arguments.json) {
            out << s_json(*raw, message);
        } else {
            out << (isFirst ? "" : "\n");
            writer.message(label, message);
        }
        isFirst = false;
        const int error = flushed(out);
        if (error != 0) {
            refuse("cannot write the texts: " + systemReason(error));
        }
    }
    return status;
}

} // namespace

void addTextCommand(CLI::App &app, TextsArguments &arguments) {
    CLI::App *text = app.add_subcommand("text", "Show what of a message rules are tried on");
    text->add_option("MESSAGE", arguments.messages,
                     "Message files, mbox files, directories of them, Maildirs; - is standard "
                     "input")
        ->required()
        ->type_name("");
    text->add_option("--sender", arguments.sender,
                     "Envelope sender of the messages, instead of their Return-Path")
        ->expected(1)
        ->type_name("ADDR");
    text->add_flag("--json", arguments.json, "Print one JSON object a line for each message");
    text->footer("Exit status: 0 all were shown; 2 something could not be read or written, or the "
                 "command line is wrong.\n");
}

int runText(const TextsArguments &arguments, std::ostream &out, std::ostream &err) {
    try {
        return s_run(arguments, out, err);
    } catch (const Exception &failure) {
        err << "corvane: " << readable(failure) << '\n';
        return kExitFailed;
    }
}

} // namespace Corvane::Cli
