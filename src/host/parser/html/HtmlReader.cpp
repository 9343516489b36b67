#include "host/parser/html/HtmlReader.h"

#include <algorithm>
#include <cstdint>

#include "host/parser/Budget.h"
#include "host/parser/Charset.h"
#include "host/parser/Text.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

// Longest condition of a conditional comment, in bytes.
constexpr std::size_t kMaxConditionBytes = 512;

constexpr ByteSet kClassEnds = byteSet(" \t\n\f\r");

bool s_isBlankText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return isBlank(c) || c == '\0'; });
}

// Whether a style sheet is for what a mail is read with.
StyleUse s_useOf(std::string_view media) {
    const std::string lower = cssLower(cssTrimmed(media));
    const bool isForAll = lower.empty() || lower == "all" || lower == "screen";
    return isForAll ? StyleUse::Applied : StyleUse::Ignored;
}

bool s_isContinuation(char c) {
    constexpr unsigned char kMask = 0xC0;
    constexpr unsigned char kContinuation = 0x80;
    return (static_cast<unsigned char>(c) & kMask) == kContinuation;
}

// The text without what a cut has left of its last character.
std::string_view s_wholeCharacters(std::string_view text) {
    std::size_t lead = text.size();
    while (lead > 0 && s_isContinuation(text[lead - 1])) {
        --lead;
    }
    lead -= std::min<std::size_t>(lead, 1);
    const std::string_view last = text.substr(lead);
    const bool isWhole = utf8SequenceLength(last.data(), last.size()) == last.size();
    return isWhole ? text : text.substr(0, lead);
}

// A size of a picture that leaves nothing to be seen of it.
bool s_isDot(std::string_view size) {
    const auto number = cssNumber(cssTrimmed(size));
    return number && number->unit != "%" && number->value <= 1;
}

} // namespace

HtmlReader::HtmlReader(const MailLimits &limits, MailLimitSet &hits, UriCollector &uris,
                       std::size_t &textBytesLeft)
    : limits_(limits), hits_(hits), textBytesLeft_(textBytesLeft), links_(uris),
      text_(limits.value(MailLimit::TextBytes),
            [this](std::string_view line) { links_.scan(line); }),
      sheet_(limits.value(MailLimit::StyleRules),
             [this](std::string_view uri) { links_.add(uri, UriSight::Shown); }),
      main_(static_cast<TokenSink &>(*this), limits.value(MailLimit::HtmlTagBytes)) {}

void HtmlReader::feed(std::string_view html) {
    constexpr std::size_t kStepBytes = 16U << 10U;
    constexpr std::uint64_t kByteWork = 4;
    while (!html.empty() && !Budget::spend(std::min(html.size(), kStepBytes) * kByteWork)) {
        std::size_t step = std::min(html.size(), kStepBytes);
        while (step < html.size() && s_isContinuation(html[step])) {
            ++step;
        }
        sheet_.allow(step);
        main_.feed(html.substr(0, step));
        html.remove_prefix(step);
    }
}

SentAndSeen HtmlReader::take() {
    main_.finish();
    endContent();
    settleLink(UriSight::Hidden);
    if (sheet_.hasGivenUp()) {
        hits_.insert(MailLimit::StyleRules);
    }
    return text_.take();
}

Sight HtmlReader::sightOf(const Look &look) const {
    const bool isHidden =
        (look.isHidden() && !sheet_.hasGivenUp()) || (conditional_ && conditionalIsHidden_);
    return isHidden ? Sight::Hidden : Sight::Seen;
}

void HtmlReader::characters(std::string_view text) {
    if (content_ == Content::Style) {
        sheet_.feed(text);
        return;
    }
    if (content_ == Content::Script || inData_) {
        return;
    }
    if (content_ == Content::Title) {
        takeTitle(text);
        return;
    }
    const Look &look = open_.textLook();
    takeText(sightOf(look), text, look.isPreserved);
}

// As much of the text as is left of the limit on texts.
std::string_view HtmlReader::withinLimit(std::string_view text) {
    if (text.size() > textBytesLeft_) {
        hits_.insert(MailLimit::HtmlBytes);
        text = s_wholeCharacters(text.substr(0, textBytesLeft_));
        textBytesLeft_ = text.size();
    }
    textBytesLeft_ -= text.size();
    return text;
}

void HtmlReader::takeTitle(std::string_view text) {
    const std::size_t most = limits_.value(MailLimit::TextBytes);
    title_.append(withinLimit(text).substr(0, most - std::min(most, title_.size())));
}

void HtmlReader::takeText(Sight sight, std::string_view text, bool keepLines) {
    text = withinLimit(text);
    if (hasPendingLink_ && sight == Sight::Seen && !s_isBlankText(text)) {
        settleLink(UriSight::Shown);
    }
    text_.append(sight, text, keepLines);
}

void HtmlReader::doctype(const Doctype &doctype) {
    if (!sawTag_ && !conditional_) {
        open_.inQuirks(doctype.forceQuirks);
    }
}

void HtmlReader::startTag(const Tag &tag) {
    sawTag_ = true;
    const std::uint32_t name = nameHash(tag.name);
    const Element &element = elementOf(tag.name);
    const Attributes attributes(tag);
    noteCuts(tag);
    if (inData_ || (conditional_ && element.id == ElementId::Xml)) {
        inData_ = true;
        return;
    }
    const bool isStyledFont = attributes.has(AttributeId::Color) ||
                              attributes.has(AttributeId::Face) ||
                              attributes.has(AttributeId::Size);
    if (open_.isForeign() &&
        (element.is(Trait::kLeavesForeign) || (element.id == ElementId::Font && isStyledFont))) {
        open_.leaveForeign();
    }
    const bool isForeign = open_.isForeign();
    if (!isForeign && beginContent(element, attributes)) {
        return;
    }
    if (!isForeign && element.text != TextKind::Data) {
        tokenizer().readAs(element.text);
    }
    startElement(tag, name, element, attributes);
    tokenizer().inForeignContent(open_.isForeign());
}

// Scripts and style sheets hold no text of the document. Its title stands above a window, where one
// is; no mail program shows it with the text.
bool HtmlReader::beginContent(const Element &element, const Attributes &attributes) {
    switch (element.id) {
    case ElementId::Script:
        content_ = Content::Script;
        break;
    case ElementId::Style:
        content_ = Content::Style;
        break;
    case ElementId::Title:
        content_ = Content::Title;
        break;
    default:
        return false;
    }
    tokenizer().readAs(element.text);
    takeLinks(element, attributes, Sight::Seen);
    if (content_ == Content::Style) {
        const std::string type = cssLower(cssTrimmed(attributes[AttributeId::Type]));
        const bool isCss = type.empty() || type == "text/css";
        sheet_.begin(isCss && !conditional_ ? s_useOf(attributes[AttributeId::Media])
                                            : StyleUse::Ignored);
    }
    return true;
}

void HtmlReader::endContent() {
    if (content_ == Content::Style) {
        sheet_.end();
    } else if (content_ == Content::Title) {
        text_.aside(title_);
        title_.clear();
    }
    content_ = Content::Text;
}

void HtmlReader::startElement(const Tag &tag, std::uint32_t name, const Element &element,
                              const Attributes &attributes) {
    open_.beforeStart(element);
    describe(name, element, attributes);
    element_.look = lookNow(element);
    const Look &look = element_.look;
    const Sight sight = sightOf(look);
    if (look.isBlock || element.id == ElementId::Br) {
        text_.breakLine();
    } else if (element.is(Trait::kCell)) {
        text_.blank(sight);
    }
    takeLinks(element, attributes, sight);
    takeWords(element, attributes, sight);
    const bool isFrameAgain =
        element.is(Trait::kFrame) && (element.id != ElementId::Body || open_.has(ElementId::Body));
    const bool isStray = element.is(Trait::kTablePart | Trait::kCell) &&
                         element.id != ElementId::Table && !open_.isInTable();
    const bool isClosed =
        isStray || element.is(Trait::kVoid) || (tag.selfClosing && open_.isForeign());
    if (!isFrameAgain && !isClosed) {
        open_.open(element_);
    }
}

// Gathers what selectors ask and styles declare of the element that starts.
void HtmlReader::describe(std::uint32_t name, const Element &element,
                          const Attributes &attributes) {
    element_.element = &element;
    element_.facts.name = name;
    element_.facts.id = 0;
    element_.facts.classes.clear();
    element_.isLink = element.id == ElementId::A && attributes.has(AttributeId::Href);
    if (!element_.declared.isEmpty()) {
        element_.declared = Declarations();
    }
    if (attributes.has(AttributeId::Id)) {
        element_.facts.id = nameHash(attributes[AttributeId::Id]);
    }
    takeClasses(attributes[AttributeId::Class]);
    declareAttributes(element, attributes);
    sheet_.declare(element_.facts, open_.around(), element_.declared);
    if (attributes.has(AttributeId::Style)) {
        declareInline(attributes[AttributeId::Style]);
    }
}

void HtmlReader::takeClasses(std::string_view names) {
    std::vector<std::uint32_t> &classes = element_.facts.classes;
    while (!(names = cssTrimmed(names)).empty()) {
        const std::size_t end = findIn(kClassEnds, names);
        const std::uint32_t hash = nameHash(names.substr(0, end));
        if (!element_.facts.hasClass(hash)) {
            if (classes.size() == ElementFacts::kMaxClasses) {
                sheet_.giveUp();
                return;
            }
            classes.push_back(hash);
        }
        names.remove_prefix(end);
    }
}

void HtmlReader::declareAttributes(const Element &element, const Attributes &attributes) {
    Declarations &declared = element_.declared;
    const auto colour = [&](AttributeId id, Property property) {
        if (!attributes.has(id)) {
            return;
        }
        if (const auto value = attributeColour(attributes[id])) {
            declared.set(property, {Keyword::Colour, *value}, kAttributePriority);
        }
    };
    if (attributes.has(AttributeId::Hidden)) {
        declared.set(Property::Display, {Keyword::None, {}}, kAttributePriority);
    }
    if (element.id == ElementId::Font) {
        colour(AttributeId::Color, Property::Colour);
    }
    if (element.id == ElementId::Body) {
        colour(AttributeId::Text, Property::Colour);
    }
    if (element.is(Trait::kTablePart | Trait::kCell) || element.id == ElementId::Body) {
        colour(AttributeId::BgColor, Property::Background);
        if (!cssTrimmed(attributes[AttributeId::Background]).empty()) {
            declared.set(Property::BackgroundImage, {Keyword::Other, {}}, kAttributePriority);
        }
    }
}

void HtmlReader::declareInline(std::string_view style) {
    for (const Declaration &one : styles_.declarationsOf(style)) {
        element_.declared.set(one.property, one.value,
                              kInlinePriority | (one.isImportant ? kImportantPriority : 0));
    }
}

Look HtmlReader::lookNow(const Element &element) const {
    return lookOf(element, element_.isLink, element_.declared, open_.parentLook(element),
                  open_.isInQuirks());
}

// A link is shown once something of it is: of an anchor that stays empty there is nothing to see.
void HtmlReader::settleLink(UriSight sight) {
    if (hasPendingLink_) {
        hasPendingLink_ = false;
        links_.add(pendingLink_, sight);
    }
}

void HtmlReader::takeHref(const Element &element, const Attributes &attributes, Sight sight) {
    const std::string_view uri = attributes[AttributeId::Href];
    if (element.id == ElementId::Base) {
        links_.base(uri);
        return;
    }
    if (element.id == ElementId::A && sight == Sight::Seen) {
        pendingLink_ = uri;
        hasPendingLink_ = true;
        return;
    }
    links_.add(uri, sight == Sight::Seen ? UriSight::Shown : UriSight::Hidden);
}

void HtmlReader::takeLinks(const Element &element, const Attributes &attributes, Sight sight) {
    const UriSight uriSight = sight == Sight::Seen ? UriSight::Shown : UriSight::Hidden;
    const bool showsSomething = element.id == ElementId::Img || element.id == ElementId::Input ||
                                element.id == ElementId::Button || element.is(Trait::kTablePart);
    if (hasPendingLink_ &&
        (element.id == ElementId::A || (showsSomething && sight == Sight::Seen))) {
        settleLink(element.id == ElementId::A ? UriSight::Hidden : UriSight::Shown);
    }
    if (attributes.has(AttributeId::Href)) {
        takeHref(element, attributes, sight);
    }
    for (int id = 0; attributes.hasLink() && id < static_cast<int>(AttributeId::Href); ++id) {
        if (attributes.has(static_cast<AttributeId>(id))) {
            links_.add(attributes[static_cast<AttributeId>(id)], uriSight);
        }
    }
    for (const AttributeId id : {AttributeId::SrcSet, AttributeId::ImageSrcSet}) {
        if (attributes.has(id)) {
            links_.addSet(attributes[id], uriSight);
        }
    }
    const std::string_view style = attributes[AttributeId::Style];
    if (style.find('(') != std::string_view::npos) {
        forEachCssUri(style, [&](std::string_view uri) { links_.add(uri, uriSight); });
    }
    if (element.id == ElementId::Meta &&
        cssLower(cssTrimmed(attributes[AttributeId::HttpEquiv])) == "refresh") {
        links_.addRefresh(attributes[AttributeId::Content]);
    }
}

// Texts that stand in attributes: in place of pictures, on buttons, and in tool tips, which nobody
// sees while reading.
void HtmlReader::takeWords(const Element &element, const Attributes &attributes, Sight sight) {
    const auto inPlace = [&](std::string_view words, Sight itsSight) {
        // A picture of one letter may stand inside a word.
        const bool isLetterOnly = words.size() <= 1;
        if (!isLetterOnly) {
            text_.blank(itsSight);
        }
        takeText(itsSight, words, false);
        if (!isLetterOnly) {
            text_.blank(itsSight);
        }
    };
    const bool isInput = element.id == ElementId::Input;
    const std::string type =
        isInput ? cssLower(cssTrimmed(attributes[AttributeId::Type])) : std::string();
    const bool isPicture = element.id == ElementId::Img || (isInput && type == "image");
    if (isPicture && attributes.has(AttributeId::Alt)) {
        const bool isDot =
            s_isDot(attributes[AttributeId::Width]) || s_isDot(attributes[AttributeId::Height]);
        inPlace(attributes[AttributeId::Alt], isDot ? Sight::Hidden : sight);
    }
    if (isInput && (type == "submit" || type == "button" || type == "reset")) {
        inPlace(attributes[AttributeId::ValueText], sight);
    }
    if (attributes.has(AttributeId::Title) && sight == Sight::Seen) {
        text_.aside(attributes[AttributeId::Title]);
    } else if (attributes.has(AttributeId::Title)) {
        inPlace(attributes[AttributeId::Title], Sight::Hidden);
    }
}

// A value that was cut is a link or a style of which something may be missing; pictures that a mail
// brings along in their links are as long as that, and lead nowhere.
void HtmlReader::noteCuts(const Tag &tag) {
    constexpr std::string_view kData = "data:";
    for (const Attribute &attribute : tag.attributes) {
        if (attribute.isCut && cssLower(attribute.value.substr(0, kData.size())) != kData) {
            hits_.insert(MailLimit::HtmlTagBytes);
        }
    }
}

void HtmlReader::endTag(const Tag &tag) {
    const std::uint32_t name = nameHash(tag.name);
    const Element &element = elementOf(tag.name);
    if (content_ != Content::Text) {
        endContent();
        return;
    }
    if (inData_) {
        inData_ = element.id != ElementId::Xml;
        return;
    }
    if (element.id == ElementId::A) {
        settleLink(UriSight::Hidden);
    }
    const bool wasBlock = !open_.around().empty() && open_.around().back().open->look.isBlock;
    open_.close(element, name);
    tokenizer().inForeignContent(open_.isForeign());
    if (element.is(Trait::kBlock) || wasBlock || element.id == ElementId::Br) {
        text_.breakLine();
    } else if (element.is(Trait::kCell)) {
        text_.blank(Sight::Seen);
    }
}

// Of a comment the front is held until it is clear whether it begins with a condition.
void HtmlReader::comment(std::string_view piece) {
    constexpr std::string_view kIf = "[if";
    constexpr std::string_view kConditionEnd = "]>";
    if (readsConditional_ || commentKind_ == CommentKind::Plain) {
        return;
    }
    if (commentKind_ == CommentKind::Conditional) {
        feedConditional(piece);
        return;
    }
    const std::string_view taken = piece.substr(0, kMaxConditionBytes);
    commentStart_.append(taken);
    const std::string front = cssLower(std::string_view(commentStart_).substr(0, kIf.size()));
    const std::size_t end = commentStart_.find(kConditionEnd);
    if (kIf.substr(0, front.size()) != front) {
        commentKind_ = CommentKind::Plain;
    } else if (end != std::string::npos) {
        beginConditional(std::string_view(commentStart_).substr(0, end).substr(kIf.size()));
        feedConditional(std::string_view(commentStart_).substr(end + kConditionEnd.size()));
        feedConditional(piece.substr(taken.size()));
    } else if (commentStart_.size() > kMaxConditionBytes) {
        hits_.insert(MailLimit::HtmlTagBytes);
        commentKind_ = CommentKind::Plain;
    }
}

// A condition with a '!' is for programs that read no conditional comments: nobody shows it. What
// others ask is taken for true.
void HtmlReader::beginConditional(std::string_view condition) {
    const std::size_t first = std::min(condition.find_first_not_of(" \t\n("), condition.size());
    conditionalIsHidden_ = condition.substr(first, 1) == "!" &&
                           condition.find_first_of("|&") == std::string_view::npos;
    commentKind_ = CommentKind::Conditional;
    open_.fence();
    conditional_.emplace(static_cast<TokenSink &>(*this), limits_.value(MailLimit::HtmlTagBytes));
}

void HtmlReader::feedConditional(std::string_view html) {
    readsConditional_ = true;
    conditional_->feed(html);
    readsConditional_ = false;
}

void HtmlReader::commentEnd() {
    if (readsConditional_) {
        return;
    }
    if (commentKind_ == CommentKind::Conditional) {
        readsConditional_ = true;
        conditional_->finish();
        readsConditional_ = false;
        endContent();
        inData_ = false;
        open_.unfence();
        conditional_.reset();
    }
    commentKind_ = CommentKind::Undecided;
    commentStart_.clear();
}

} // namespace Corvane::Html
