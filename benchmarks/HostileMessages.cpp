#include "HostileMessages.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/parser/html/Elements.h"

namespace Corvane::Benchmarks {

namespace {

// As many pieces as make the bytes, between a front and an end; '#' in a piece is its number.
std::string s_filled(const std::string &front, const std::string &piece, std::size_t bytes,
                     const std::string &end = "") {
    std::string text = front;
    text.reserve(bytes + piece.size() + end.size());
    const bool isNumbered = piece.find('#') != std::string::npos;
    for (std::size_t number = 0; text.size() + end.size() < bytes; ++number) {
        if (!isNumbered) {
            text += piece;
            continue;
        }
        for (const char c : piece) {
            c == '#' ? text += std::to_string(number) : text += c;
        }
    }
    return text + end;
}

using Piece = std::array<std::string, 3>; // name, front, piece

const std::string kText = "Content-Type: text/plain; charset=";
const std::string kHtml = "Content-Type: text/html; charset=utf-8\n\n";
const std::string kDashes = "--";
const std::string kMixed = "Content-Type: multipart/mixed; boundary=b\n\n";
const std::string kBase64 = "Content-Transfer-Encoding: base64\n\n";
const std::string kQuoted = "Content-Transfer-Encoding: quoted-printable\n\n";

const std::string kNewsletterRow =
    "<tr><td style=\"padding:4px;color:#333333\" class=\"row\"><a href=\"https://news.example/"
    "offers/#?utm=a&amp;b=c\"><img src=\"https://img.example/#.png\" alt=\"Offer #\" width=\"120\">"
    "</a></td><td><b>Offer # of the week</b><br>Two for one &ndash; caf\u00E9 and more, only "
    "&euro;&nbsp;9,90 until Sunday. <a href='https://news.example/more/#'>Read&nbsp;more</a></td>"
    "</tr>\n";

// A front once, and a piece over and over.
const std::vector<Piece> kRepeated = {
    // Headers.
    {"headers", "", "X-Header-#: value\n"},
    {"headers-short", "", "A:\n"},
    {"headers-of-one-name", "", "Subject: x\n"},
    {"headers-that-matter", "", "Content-Type: text/html; charset=utf-8\n"},
    {"headers-folded", "Subject: x\n", " y\n"},
    {"headers-blank-folds", "Subject: x\n", " \n"},
    {"headers-long-value", "Subject: ", "word "},
    {"headers-long-name", "", "x"},
    {"headers-encoded-words", "Subject: ", "=?utf-8?Q?a?= "},
    {"headers-word-fronts", "Subject: ", "=?"},
    {"headers-uris", "List-Unsubscribe: ", "<http://a#.example/x> "},
    {"headers-colons", "X: ", "://"},
    {"headers-stray-lines", "A: b\n", "stray line\nB: c\n"},
    {"headers-addresses", "Return-Path: ", "<a@b.example>, "},
    // Parameters of a Content-Type.
    {"type-parameters", "Content-Type: text/html", "; a#=b"},
    {"type-boundaries", "Content-Type: multipart/mixed", "; boundary=b#"},
    {"type-pieces", "Content-Type: multipart/mixed", "; boundary*#=b"},
    {"type-comments", "Content-Type: ", "(a)"},
    {"type-open-comments", "Content-Type: text/html; ", "("},
    {"type-nested-comments", "Content-Type: text/html; ", "((a)"},
    {"type-open-quotes", "Content-Type: text/html; ", "a=\"b;"},
    {"type-escapes", "Content-Type: multipart/mixed; boundary=\"", "\\\\"},
    {"type-semicolons", "Content-Type: text/html", ";"},
    {"type-percents", "Content-Type: text/plain; charset*=", "%41"},
    {"type-slashes", "Content-Type: ", "/"},
    {"type-folds", "Content-Type: text/html;\n", " a=b;\n"},
    // Parts.
    {"parts-empty", kMixed, "--b\n\n"},
    {"parts-headless", kMixed, "--b\n"},
    {"parts-small", kMixed, "--b\n\nx\n"},
    {"parts-html", kMixed, "--b\nContent-Type: text/html\n\n<p>#\n"},
    {"parts-attached", kMixed, "--b\nContent-Disposition: attachment\n\nx\n"},
    {"parts-of-no-type", kMixed, "--b\nContent-Type: text/\n\n<p>x\n"},
    {"parts-alternatives", "Content-Type: multipart/alternative; boundary=b\n\n",
     "--b\n\nx\n--b\nContent-Type: text/html\n\n<p>x\n"},
    {"parts-multiparts", kMixed,
     "--b\nContent-Type: multipart/mixed; boundary=c\n\n--c\n\nx\n--c--\n"},
    {"parts-messages", kMixed, "--b\nContent-Type: message/rfc822\n\nSubject: #\n\nx\n"},
    {"parts-coded-messages", kMixed,
     "--b\nContent-Type: message/rfc822\nContent-Transfer-Encoding: "
     "base64\n\nU3ViamVjdDogeAoKeQ==\n"},
    {"parts-nested", "", "Content-Type: multipart/mixed; boundary=b#\n\n--b#\n"},
    {"parts-nested-same", "", "Content-Type: multipart/mixed; boundary=b\n\n--b\n"},
    {"parts-nested-messages", "", "Content-Type: message/rfc822\n\n"},
    {"parts-nested-both", "",
     "Content-Type: multipart/mixed; boundary=b#\n\n--b#\nContent-Type: message/rfc822\n\n"},
    {"parts-digest", "Content-Type: multipart/digest; boundary=b\n\n", "--b\n\nSubject: #\n\nx\n"},
    {"parts-charsets", kMixed,
     "--b\nContent-Type: text/plain; charset=iso-2022-jp\n\nx\n--b\nContent-Type: text/plain; "
     "charset=utf-7\n\nx\n"},
    {"parts-encodings", kMixed,
     "--b\nContent-Type: text/html; charset=koi8-r\n" + kBase64 + "PGI+\n--b\n" + kQuoted +
         "=41\n"},
    {"parts-calendars", kMixed, "--b\nContent-Type: text/calendar\n\nSUMMARY:x\n"},
    {"parts-enriched", kMixed, "--b\nContent-Type: text/enriched\n\n<b>x\n"},
    {"parts-styles", kMixed, "--b\nContent-Type: text/html\n\n<style>a{color:red}</style><a>x\n"},
    {"parts-dashes", kMixed, "--\n"},
    {"parts-dashes-long", kMixed, "--bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb\n"},
    {"parts-empty-boundary", "Content-Type: multipart/mixed; boundary=\"\"\n\n", "--\n\n"},
    // Transfer encodings.
    {"base64-padding", kText + "utf-8\n" + kBase64, "="},
    {"base64-short-runs", kText + "utf-8\n" + kBase64, "QQ=="},
    {"base64-rubbish", kText + "utf-8\n" + kBase64, "*"},
    {"base64-html", "Content-Type: text/html\n" + kBase64, "PGI+eDwvYj4g"},
    {"quoted-escapes", kText + "utf-8\n" + kQuoted, "=41"},
    {"quoted-equals", kText + "utf-8\n" + kQuoted, "="},
    {"quoted-blanks", kText + "utf-8\n" + kQuoted, "=        "},
    {"quoted-soft", kText + "utf-8\n" + kQuoted, "=\n"},
    {"uuencode", "Content-Transfer-Encoding: x-uuencode\n\nbegin 644 x\n", "!`\n"},
    // Charsets.
    {"charset-utf-8-bad", kText + "utf-8\n\n", "\xFF"},
    {"charset-windows", kText + "iso-8859-1\n\n", "\xE9"},
    {"charset-vietnamese", kText + "windows-1258\n\n", "a\xCC"},
    {"charset-gb18030-bad", kText + "gb18030\n\n", "\x81 "},
    {"charset-big5", kText + "big5\n\n", "\xA4\xA4"},
    {"charset-shift-jis-bad", kText + "shift_jis\n\n", "\xFD"},
    {"charset-euc-jp", kText + "euc-jp\n\n", "\xA4\xA2 "},
    {"charset-iso-2022-jp", kText + "iso-2022-jp\n\n", "\x1B$B$\"\x1B(B "},
    {"charset-iso-2022-escapes", kText + "iso-2022-jp\n\n", "\x1B"},
    {"charset-iso-2022-kr", kText + "iso-2022-kr\n\n",
     "\x0E"
     "0!\x0F"},
    {"charset-hz", kText + "hz-gb-2312\n\n", "~{VP~}"},
    {"charset-utf-7", kText + "utf-7\n\n", "+AGE-"},
    {"charset-utf-7-pluses", kText + "utf-7\n\n", "+"},
    {"charset-utf-16-bad", kText + "utf-16le\n\n", "\x01\xD8"},
    // Plain and other texts.
    {"text-invisible", kText + "utf-8\n\n", "\u200B"},
    {"text-joiners", kText + "utf-8\n\n", "\u0645\u200C\u200D"},
    {"text-blank-lines", kText + "utf-8\n\n", "\n"},
    {"text-uris", kText + "utf-8\n\n", "http://a#.example/ "},
    {"text-uri-fronts", kText + "utf-8\n\n", "http://"},
    {"text-brackets", kText + "utf-8\n\nhttp://a.example/", "("},
    {"text-enriched", "Content-Type: text/enriched\n\n", "<bold>x</bold>\n"},
    {"text-enriched-fronts", "Content-Type: text/enriched\n\n", "<"},
    {"text-calendar", "Content-Type: text/calendar\n\n", "SUMMARY:x\n y\n"},
    {"text-carriage-returns", kText + "utf-8\n\n", "x\r"},
    // HTML.
    {"html-tags", kHtml, "<b>"},
    {"html-fronts", kHtml, "<"},
    {"html-declarations-in-tags", kHtml + "<a x=\"", "<!"},
    {"html-ends-in-style", kHtml + "<style>", "</"},
    {"html-ends-in-script", kHtml + "<script>", "</scrip"},
    {"html-comments", kHtml, "<!--x-->"},
    {"html-open-comment", kHtml + "<!--", "-!"},
    {"html-attributes", kHtml + "<p", " a#"},
    {"html-attribute-values", kHtml, "<p a='x' b=\"y\" c=z>"},
    {"html-links", kHtml, "<a href=http://a#.example/>x</a>"},
    {"html-base", kHtml, "<base href=http://a#.example/><a href=x#>"},
    {"html-entities", kHtml, "&amp;&lt;&eacute;"},
    {"html-entity-fronts", kHtml, "&CounterClockwiseContourIntegra"},
    {"html-numbers", kHtml, "&#x10FFFF;&#233;"},
    {"html-style-rules", kHtml + "<style>", ".a#{color:red}"},
    {"html-style-classes", kHtml + "<style>.a{display:none}.b .c{color:red}</style>",
     "<p class='a b c d'>x</p>"},
    {"html-inline-styles", kHtml, "<i style='display:none;color:red;font-size:0'>x</i>"},
    {"html-nested-lists", kHtml, "<ul><li>x"},
    {"html-tables", kHtml, "<table><tr><td>x"},
    {"html-pre", kHtml + "<pre>", "x \n"},
    {"html-blanks", kHtml, " \n\t"},
    {"html-nuls", kHtml, std::string("<\0b>", 4)},
    {"html-sizes", kHtml, "<font size=7 color=#12345>x"},
    {"html-doctypes", kHtml, "<!DOCTYPE x SYSTEM \"y\">"},
    {"html-cdata", kHtml + "<svg>", "<![CDATA[x]]>"},
    {"html-foreign", kHtml, "<svg><math><b>x"},
    {"html-conditions", kHtml, "<!--[if mso]><b>x</b><![endif]-->"},
    {"html-condition-fronts", kHtml, "<!--[if-->"},
    {"html-condition", kHtml + "<!--[if mso]>", "<b>x</b>"},
    {"html-metas", kHtml, "<meta http-equiv=refresh content='0;url=http://a#.example'>"},
    {"html-titles", kHtml, "<i title=x>"},
    {"html-hidden", kHtml, "<i hidden>x</i>y "},
    {"html-invisible", kHtml, "x\u200By "},
    {"html-invisible-links", kHtml, "<a href=http://a\u200B#.example/>x\u00AD</a>"},
    {"html-long-words", kHtml, "abcdefgh"},
    {"html-headings", kHtml, "<h1><h2>x"},
    {"html-style-comments", kHtml + "<style>", "/**/"},
    {"html-style-blocks", kHtml + "<style>", "a{"},
    {"html-style-urls", kHtml + "<style>", "@import 'a#';"},
    {"html-style-brackets", kHtml + "<style>", "a:not("},
    {"html-style-lists", kHtml + "<style>", "i,b{opacity:0}"},
    {"html-style-shorthands", kHtml, "<i style='font:a;background:red;padding:0 1px'>x</i>"},
    {"html-style-colours", kHtml, "<i style='color:lightgoldenrodyellow;color:rgb(1%,2%,3%)'>"},
    {"html-style-escapes", kHtml, "<i style='\\64 isplay:\\6eone'>"},
    {"html-set-links", kHtml, "<img srcset='a# 1x, b#'>"},
    {"html-paragraphs", kHtml, "<p><i style=color:red><b style=color:red>x</p>"},
    {"html-items", kHtml, "<li><i style=color:red><div>x"},
    {"html-anchors", kHtml, "<a href=x><div>"},
    {"html-plain", kHtml + "<plaintext>", "<b>"},
    {"html-references-in-links", kHtml, "<a href='&amp;&colon;&#x3a;'>"},
};

// As many pieces as stand inside each other, and behind them one piece over and over: what a tag
// costs when it has to look through all that is open.
using DeepPiece = std::array<std::string, 3>; // name, what is open, piece

const std::vector<DeepPiece> kDeep = {
    {"deep-no-end", "<div>", "</b>"},
    {"deep-no-block-end", "<div>", "</section>"},
    {"deep-no-inline-end", "<i>", "</tt>"},
    {"deep-hidden-ends", "<b><table><tr><td>", "</b>"},
    {"deep-texts", "<i style=color:red>", "x<br>"},
    {"deep-formats", "<i style=color:red>", "<b>x</b>"},
    {"deep-anchors", "<div>", "<a>x</a>"},
    {"deep-items", "<div>", "<dd></dd>"},
    {"deep-buttons", "<div>", "<button></button>"},
    {"deep-bodies", "<div>", "<body>"},
    {"deep-paragraphs", "<span>", "<p>x</p>"},
    {"deep-cell-ends", "<table><tr><td><div><div>", "</td x>"},
    {"deep-tables", "<table>", "<b>x</b>"},
    {"deep-rows", "<table><tr>", "<b></b>"},
    {"deep-foreign", "<svg>", "<x></x>"},
    {"deep-options", "<div>", "<option>x"},
    {"deep-conditions", "<div>", "<!--[if a]><b><![endif]-->"},
};

// Repeats whole pages of tags.
struct Page {
    std::string name;
    std::string front;
    std::vector<std::pair<std::size_t, std::string>> pieces; // how often each
};

const std::vector<Page> kPages = {
    {"page-crossed",
     "",
     {{120, "<b style=color:red>"}, {130, "<div>"}, {120, "</b>"}, {130, "</div>"}}},
    {"page-crossed-plain", "", {{120, "<b>"}, {130, "<div>"}, {120, "</b>"}, {130, "</div>"}}},
    {"page-crossed-anchors",
     "",
     {{100, "<a href=x>"}, {100, "<div><i style=color:red>"}, {100, "<a>"}}},
    {"page-barred-ends", "<b><table><tr><td>" + s_filled("", "<div>", 1200), {{1, "</b>"}}},
    {"page-barred-block-ends", "<ul><table><tr><td>" + s_filled("", "<div>", 1200), {{1, "</ul>"}}},
    {"page-barred-inline-ends", "<tt><div>" + s_filled("", "<i>", 740), {{1, "</tt >"}}},
    {"page-headings", s_filled("", "<div>", 1200), {{1, "</h1>"}}},
    {"page-reopened", "", {{1, "<p>"}, {8, "<i style=color:red>"}, {20, "</p><p>"}, {8, "</i>"}}},
    {"page-closed", "", {{250, "<span>"}, {1, "<p></p></div><table></table>"}, {250, "</span>"}}},
    {"page-selectors",
     "<style>i i i i i i i b{color:red}.a .a .a .a b{color:red}</style>",
     {{200, "<i class=a>"}, {200, "<b>x</b>"}, {200, "</i>"}}},
    {"page-rules",
     "<style>" + s_filled("", ".a{display:none}", 200'000) + "</style>",
     {{1, "<p class=a>"}}},
    {"page-classes",
     "<style>" + s_filled("", ".a#{display:none}", 200'000) + "</style>",
     {{1, "<p class='a1 a2 a3 a4 a5 a6 a7 a8 a9 a10 a11 a12'>"}}},
    {"page-set", "", {{1, "<img srcset='"}, {8000, "a,"}, {1, "'>"}}},
    {"page-numbered-set", "", {{1, "<img srcset='"}, {2000, "a#,"}, {1, "'>"}}},
    {"page-style", "", {{1, "<i style='"}, {4000, "a:b;"}, {1, "'>"}}},
    {"page-style-sizes", "", {{1, "<i style='"}, {2000, "width:0;"}, {1, "'>"}}},
    {"page-style-words", "", {{1, "<i style='font:"}, {8000, "a "}, {1, "'>"}}},
    {"page-style-comments", "", {{1, "<i style='"}, {4000, "/**/"}, {1, "'>"}}},
    {"page-style-urls", "", {{1, "<i style='"}, {2000, "url(a)"}, {1, "'>"}}},
    {"page-style-brackets", "", {{1, "<i style='background:"}, {8000, "a("}, {1, "'>"}}},
    {"page-style-escapes", "", {{1, "<i style='"}, {5000, "\\6"}, {1, "'>"}}},
    {"page-colour", "", {{1, "<font color='"}, {8000, "#f"}, {1, "'>"}}},
    {"page-class", "", {{1, "<i class='"}, {8000, "a "}, {1, "'>"}}},
    {"page-type", "", {{1, "<input type='"}, {8000, "A "}, {1, "'>"}}},
    {"page-refresh",
     "",
     {{1, "<meta http-equiv=refresh content='0;url="}, {8000, "a "}, {1, "'>"}}},
    {"page-base",
     "<base href='http://a.example/" + s_filled("", "a/", 2000) + "'>",
     {{1, "<a href=x>"}}},
    {"page-base-numbered",
     "<base href='http://a.example/" + s_filled("", "a/", 2000) + "'>",
     {{1, "<a href=#>"}}},
    {"page-late-base",
     s_filled("", "<a href=x#>", 200'000) + "<base href='http://a.example/" +
         s_filled("", "a/", 2000) + "'>",
     {{1, "<a href=x>"}}},
    {"page-dots", "<base href=http://a.example>", {{1, "<a href='"}, {5000, "a/../"}, {1, "'>"}}},
    {"page-title", "", {{1, "<i title='"}, {8000, "a "}, {1, "'>"}}},
    {"page-alt", "", {{1, "<img alt='"}, {8000, "a "}, {1, "'>"}}},
    {"page-selector-list", "<style>", {{1000, "a.b,"}, {1, "c{color:red}"}}},
    {"page-selector-parts", "<style>", {{1000, "a "}, {1, "{color:red}"}}},
    {"page-selector-brackets", "<style>", {{2000, "a[b"}, {1, "{color:red}"}}},
    {"page-declarations", "<style>", {{1, "a{"}, {1000, "color:red;"}, {1, "}"}}},
};

// Links whose hashes by the standard library of GCC are all the same: behind a front of eight bytes
// come eight that are counted up, and eight that undo what these have done to the state.
std::string s_collidingLinks(std::size_t bytes) {
    constexpr std::uint64_t kFactor = 0xC6A4A7935BD1E995U;
    constexpr std::uint64_t kInverse = 0x5F7A0EA7E59B19BDU;
    constexpr std::uint64_t kSeed = 0xC70F6907U;
    constexpr std::size_t kMostLinks = 4000;
    constexpr unsigned int kShift = 47;
    const std::string front("http://x");
    const auto mixed = [](const char *eight) {
        std::uint64_t word = 0;
        std::memcpy(&word, eight, sizeof word);
        word *= kFactor;
        return (word ^ word >> kShift) * kFactor;
    };
    const auto unmixed = [](std::uint64_t word) {
        word *= kInverse;
        return (word ^ word >> kShift) * kInverse;
    };
    std::string page(kHtml);
    std::string rest(2 * sizeof kFactor, '\0');
    const std::uint64_t state =
        ((kSeed ^ (front.size() + rest.size()) * kFactor) ^ mixed(front.data())) * kFactor;
    for (std::uint64_t number = 0, count = 0; count < kMostLinks && page.size() < bytes; ++number) {
        for (std::size_t i = 0; i < sizeof kFactor; ++i) {
            rest[i] = static_cast<char>('a' + (number >> 4 * i) % 16);
        }
        const std::uint64_t last = unmixed((state ^ mixed(rest.data())) * kFactor);
        std::memcpy(rest.data() + sizeof last, &last, sizeof last);
        const bool isUsable = std::all_of(rest.begin(), rest.end(), [](char c) {
            return c > ' ' && std::string_view("\"'<>&\\\x7F").find(c) == std::string_view::npos;
        });
        if (isUsable) {
            page.append("<a href='").append(front).append(rest).append("'>x</a>");
            ++count;
        }
    }
    return s_filled(page, page.substr(kHtml.size()), bytes);
}

// Classes that share one place of a hash table whose hash is known.
std::string s_collidingClasses(std::size_t bytes) {
    constexpr std::uint32_t kTableSize = 2357;
    constexpr std::size_t kClasses = 2000;
    constexpr std::size_t kUsed = 12;
    std::string sheet = kHtml + "<style>";
    std::string element = "<i class='";
    std::size_t count = 0;
    for (std::size_t number = 0; count < kClasses && sheet.size() < bytes / 2; ++number) {
        std::string name("c");
        name += std::to_string(number);
        if (Html::tableHash(name) % kTableSize == 1) {
            ++count;
            std::string &place = count <= kUsed ? element : sheet;
            place.append(count <= kUsed ? " " : ".")
                .append(name)
                .append(count <= kUsed ? "" : "{opacity:0}");
        }
    }
    return s_filled(sheet + "</style>", element + "'>", bytes);
}

std::string s_pages(const Page &page, std::size_t bytes) {
    std::string once;
    for (const auto &[count, piece] : page.pieces) {
        for (std::size_t i = 0; i < count; ++i) {
            once += piece;
        }
    }
    return s_filled(kHtml + page.front, once, bytes);
}

} // namespace

std::vector<HostileMessage> hostileMessages() {
    std::vector<HostileMessage> all;
    all.push_back({"newsletter", [](std::size_t bytes) {
                       return s_filled(kHtml + "<html><body><table>\n", kNewsletterRow, bytes,
                                       "</table></body></html>\n");
                   }});
    for (const Piece &piece : kRepeated) {
        all.push_back({piece[0], [&piece](std::size_t bytes) {
                           return s_filled(piece[1], piece[2], bytes);
                       }});
    }
    for (const DeepPiece &piece : kDeep) {
        all.push_back({piece[0], [&piece](std::size_t bytes) {
                           constexpr std::size_t kOpen = 250;
                           const std::size_t tags = static_cast<std::size_t>(
                               std::count(piece[1].begin(), piece[1].end(), '<'));
                           std::string front = kHtml;
                           for (std::size_t i = 0; i < kOpen / tags; ++i) {
                               front += piece[1];
                           }
                           return s_filled(front, piece[2], bytes);
                       }});
    }
    for (const Page &page : kPages) {
        all.push_back({page.name, [&page](std::size_t bytes) { return s_pages(page, bytes); }});
    }
    all.push_back({"html-colliding-links", s_collidingLinks});
    all.push_back({"html-colliding-classes", s_collidingClasses});
    all.push_back({"parts-long-boundary", [](std::size_t bytes) {
                       constexpr std::size_t kLongest = 16'000;
                       const std::string boundary(std::min(bytes / 2, kLongest), 'b');
                       return s_filled("Content-Type: multipart/mixed; boundary=\"" + boundary +
                                           "\"\n\n",
                                       kDashes + boundary + "x\n", bytes);
                   }});
    all.push_back({"parts-nested-long-boundaries", [](std::size_t bytes) {
                       constexpr std::size_t kLongest = 16'000;
                       const std::string boundary(std::min(bytes / 4, kLongest), 'b');
                       return s_filled("",
                                       "Content-Type: multipart/mixed; boundary=\"" + boundary +
                                           "#\"\n\n--" + boundary + "#\n",
                                       bytes);
                   }});
    all.push_back({"parts-many-open", [](std::size_t bytes) {
                       constexpr std::size_t kOpen = 250;
                       std::string front;
                       for (std::size_t i = 0; i < kOpen; ++i) {
                           std::string boundary("b");
                           boundary += std::to_string(i);
                           front += "Content-Type: multipart/mixed; boundary=" + boundary +
                                    "\n\n--" + boundary + "\n";
                       }
                       return s_filled(front, "\n--b\n--b0x\n--b249y\n", bytes);
                   }});
    return all;
}

} // namespace Corvane::Benchmarks
