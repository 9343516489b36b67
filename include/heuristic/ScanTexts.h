#ifndef CORVANE_HEURISTIC_SCANTEXTS_H
#define CORVANE_HEURISTIC_SCANTEXTS_H

// What of a message the rules of each kind are tried on, text by text in the order of a scan that nothing stops:
//
//     const Mail mail = MailReader().read(bytes);
//     ScanTexts(bytes, mail, mail.sender()).each([](const ScannedText &text) { ... });
//
// Threads: one at a time.

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "heuristic/Export.h"
#include "heuristic/HeaderRule.h"
#include "heuristic/Rule.h"
#include "host/parser/Buffer.h"
#include "host/parser/EmailAddress.h"
#include "host/parser/MailReader.h"

namespace Corvane::Heuristic {

struct ScannedText {
    enum class Source {
        Line,       // of the message as received, complete ones only: full rules
        Sender,     // of the envelope, as a header of its own: header rules
        Header,     // header rules
        Subject,    // body rules, as the next one
        Text,       // the decoded text
        RawBody,    // the body as received: raw-body rules
        SecondText, // the second rendering of the text: body rules
        Uri,        // URI rules
        WholeHeader // with its name, as received: full rules
    };

    Source source = Source::Line;
    // Of the rules that are tried on it.
    Rule::Type kind = Rule::Full;
    // Of the line, header or URI among those of its source, from 1; and of a long line's piece.
    std::size_t number = 0;
    std::size_t piece = 1;
    // Of a header: its name, and which form of its value this is. A rule looks at one form.
    std::string_view header;
    HeaderForm form = HeaderForm::Value;
    // Of a URI: where it was found, as UriContainer numbers it.
    unsigned int uriSource = 0;
    // Where it begins in the whole of its source: the message, the Subject decoded, the text, the body.
    std::size_t offset = 0;
    Buffer text;
    // Of the last one of a body: the bytes behind it that no rule is tried on.
    Buffer unread;
};

// What outputs call a source, such as "raw-body"; a form, such as "addr"; and where a URI was found, such as "html".
CORVANE_HEURISTIC_API std::string_view sourceName(ScannedText::Source source);
CORVANE_HEURISTIC_API std::string_view formName(HeaderForm form);
CORVANE_HEURISTIC_API std::string uriSourceName(unsigned int uriSource);

class CORVANE_HEURISTIC_API ScanTexts {
public:
    using Take = std::function<void(const ScannedText &)>;

    // message: as it was received, or as much of it as was read; sender: of the envelope, may be null. All must outlive
    // the object.
    ScanTexts(std::string_view message, const Mail &mail, const EmailAddress &sender)
        : message_(message), mail_(mail), sender_(sender) {}

    // Calls take for each text. What it is given is good during the call.
    void each(const Take &take) const;

    // Calls take for each text that what is unread behind the text would be cut into if it were read; does nothing
    // where nothing is.
    static void eachUnread(const ScannedText &last, const Take &take);

private:
    void lines(const Take &take) const;
    void headers(const Take &take) const;
    void bodies(const Take &take) const;
    void uris(const Take &take) const;
    void wholeHeaders(const Take &take) const;

    std::string_view message_;
    const Mail &mail_;
    const EmailAddress &sender_;
};

// The language whose rules are tried on a message, and what has decided it.
struct LanguageChoice {
    enum class Reason {
        NoText,         // no text, so the rules for all languages
        UnknownCharset, // the text's charset says nothing
        Charset,        // is used for that language
        Letters         // the charset is used for many, and so the letters of the text have decided
    };

    langID language = DEFAULT;
    Reason reason = Reason::NoText;
    // As the message declares it.
    std::string charset;
};
CORVANE_HEURISTIC_API LanguageChoice languageOf(const MimePart *part);

} // namespace Corvane::Heuristic

#endif
