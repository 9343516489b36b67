#include "host/parser/html/StyleSheet.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "host/parser/ByteScan.h"
#include "host/parser/html/CharacterClasses.h"
#include "host/parser/html/CssText.h"

namespace Corvane::Html {

namespace {

constexpr ByteSearch kTextStop = findFirst<'\\', '/', '"', '\'', '(', ')', '{', '}', ';'>;
constexpr std::string_view kUrl = "url";

enum class BucketKind : std::uint64_t { Id, Class, Name, Any };

std::uint64_t s_key(BucketKind kind, std::uint32_t hash) {
    constexpr unsigned int kHashBits = 32;
    return static_cast<std::uint64_t>(kind) << kHashBits | hash;
}

std::uint64_t s_keyOf(const Compound &compound) {
    if (compound.id != 0) {
        return s_key(BucketKind::Id, compound.id);
    }
    if (!compound.classes.empty()) {
        return s_key(BucketKind::Class, compound.classes.front());
    }
    return compound.name != 0 ? s_key(BucketKind::Name, compound.name) : s_key(BucketKind::Any, 0);
}

// Without what some wrap a sheet in so that old programs don't show it.
std::string_view s_withoutCommentMarks(std::string_view text) {
    for (text = cssTrimmed(text);; text = cssTrimmed(text)) {
        if (text.substr(0, 4) == "<!--") {
            text.remove_prefix(4);
        } else if (text.substr(0, 3) == "-->") {
            text.remove_prefix(3);
        } else {
            return text;
        }
    }
}

// What is left of a declaration of a rule that may not match: nothing that could hide a text.
std::optional<Declaration> s_inDoubt(Declaration declaration) {
    switch (declaration.value.keyword) {
    case Keyword::Colour:
        declaration.value.colour = Colour();
        return declaration;
    case Keyword::Zero:
    case Keyword::Hidden:
        return std::nullopt;
    case Keyword::None:
        if (declaration.property == Property::Display) {
            return std::nullopt;
        }
        return declaration;
    default:
        return declaration;
    }
}

} // namespace

StyleSheet::StyleSheet(std::size_t maxSelectors, std::function<void(std::string_view)> onUri)
    : maxSelectors_(maxSelectors), onUri_(std::move(onUri)) {}

void StyleSheet::begin(StyleUse use) {
    use_ = use;
    state_ = State::Text;
    brackets_ = 0;
    openBlocks_ = 0;
    inRule_ = false;
    isCut_ = false;
    hasBracket_ = false;
    piece_.clear();
}

void StyleSheet::feed(std::string_view css) {
    while (!css.empty()) {
        if (state_ == State::Text) {
            takeText(css);
            continue;
        }
        const char c = css.front();
        switch (state_) {
        case State::Comment: {
            const std::size_t star = css.find('*');
            css.remove_prefix(std::min(star, css.size() - 1));
            state_ = star == std::string_view::npos ? State::Comment : State::CommentStar;
            break;
        }
        case State::CommentStar:
            takeInComment(c);
            break;
        case State::Slash:
            if (c == '*') {
                state_ = State::Comment;
                break;
            }
            append("/");
            state_ = State::Text;
            continue;
        case State::UriStart:
        case State::Uri:
            takeInUri(c);
            break;
        default:
            takeInString(c);
            break;
        }
        css.remove_prefix(1);
    }
}

void StyleSheet::takeText(std::string_view &css) {
    const std::size_t length = kTextStop(css, 0);
    append(css.substr(0, length));
    css.remove_prefix(length);
    if (!css.empty()) {
        takeSpecial(css.front());
        css.remove_prefix(1);
    }
}

void StyleSheet::takeSpecial(char c) {
    switch (c) {
    case '/':
        state_ = State::Slash;
        return;
    case '\\':
        append("\\");
        state_ = State::Escape;
        return;
    case '"':
    case '\'':
        quote_ = c;
        state_ = State::String;
        break;
    case '(': {
        const std::size_t length = std::min(kUrl.size(), piece_.size());
        state_ = cssLower(std::string_view(piece_).substr(piece_.size() - length)) == kUrl
                     ? State::UriStart
                     : State::Text;
        ++brackets_;
        hasBracket_ = true;
        break;
    }
    case ')':
        brackets_ -= std::min(brackets_, 1U);
        break;
    default:
        if (brackets_ == 0 && c == '{') {
            openBlock();
            return;
        }
        if (brackets_ == 0 && c == '}') {
            closeBlock();
            return;
        }
        if (brackets_ == 0 && c == ';') {
            endStatement();
            return;
        }
        break;
    }
    append({&c, 1});
}

// Behind a '*' in a comment.
void StyleSheet::takeInComment(char c) {
    if (c == '/') {
        // A comment separates words.
        append(" ");
        state_ = State::Text;
    } else if (c != '*') {
        state_ = State::Comment;
    }
}

// Inside quotes, or behind a backslash.
void StyleSheet::takeInString(char c) {
    append({&c, 1});
    if (state_ == State::Escape) {
        state_ = State::Text;
    } else if (state_ == State::StringEscape) {
        state_ = State::String;
    } else if (c == '\\') {
        state_ = State::StringEscape;
    } else if (c == quote_ || c == '\n') {
        state_ = State::Text;
    }
}

// Behind "url(": quotes make it a function like others, else nothing in it has a meaning.
void StyleSheet::takeInUri(char c) {
    append({&c, 1});
    if (state_ == State::UriStart && isBlank(c)) {
        return;
    }
    if (state_ == State::UriStart && (c == '"' || c == '\'')) {
        quote_ = c;
        state_ = State::String;
        return;
    }
    state_ = State::Uri;
    if (c == ')') {
        brackets_ -= std::min(brackets_, 1U);
        state_ = State::Text;
    }
}

void StyleSheet::append(std::string_view css) {
    const std::size_t room = kMaxCssPieceBytes - std::min(piece_.size(), kMaxCssPieceBytes);
    isCut_ = isCut_ || css.size() > room;
    piece_.append(css.substr(0, room));
}

void StyleSheet::endPiece() {
    if (hasBracket_ || piece_.find('@') != std::string::npos) {
        forEachCssUri(piece_, onUri_);
    }
    piece_.clear();
    isCut_ = false;
    hasBracket_ = false;
}

void StyleSheet::openBlock() {
    if (openBlocks_++ == 0) {
        const std::string_view prelude = s_withoutCommentMarks(piece_);
        const bool isRule = use_ == StyleUse::Applied && !prelude.empty() && prelude.front() != '@';
        inRule_ = isRule && !isCut_ && selectors_.size() < maxSelectors_;
        hasGivenUp_ = hasGivenUp_ || inRule_ != isRule;
        prelude_.assign(inRule_ ? prelude : std::string_view());
        declarations_.clear();
    }
    endPiece();
}

void StyleSheet::closeBlock() {
    if (openBlocks_ == 0) {
        // Part of what stands before the next block, and spoils it.
        append("}");
        return;
    }
    declareInRule();
    if (--openBlocks_ == 0) {
        endRule();
    }
    endPiece();
}

void StyleSheet::endStatement() {
    const bool isAtRule = s_withoutCommentMarks(piece_).substr(0, 1) == "@";
    if (openBlocks_ == 0 && !isAtRule) {
        append(";");
        return;
    }
    declareInRule();
    endPiece();
}

void StyleSheet::declareInRule() {
    if (inRule_ && openBlocks_ == 1) {
        isCut_ ? declareCut() : Html::declare(piece_, declarations_);
    }
}

// Pictures in sheets are long, and what is drawn on them is seen. What else is as long is made up.
void StyleSheet::declareCut() {
    constexpr std::string_view kBackground = "background";
    const std::string_view piece(piece_);
    const std::string name = cssLower(cssTrimmed(piece.substr(0, piece.find(':'))));
    if (name.compare(0, kBackground.size(), kBackground) == 0) {
        declarations_.push_back({Property::BackgroundImage, {Keyword::Other, {}}, false});
        return;
    }
    std::vector<Declaration> any;
    Html::declare(name + ":inherit", any);
    hasGivenUp_ = hasGivenUp_ || !any.empty();
}

// Of declarations of the same weight the last one of a property counts.
void StyleSheet::dropOutdone() {
    std::array<std::array<bool, 2>, kProperties> isDeclared{};
    std::vector<Declaration> kept;
    for (auto one = declarations_.rbegin(); one != declarations_.rend(); ++one) {
        bool &isAgain =
            isDeclared[static_cast<std::size_t>(one->property)][one->isImportant ? 1 : 0];
        if (!isAgain) {
            kept.push_back(*one);
        }
        isAgain = true;
    }
    declarations_.assign(kept.rbegin(), kept.rend());
}

void StyleSheet::endRule() {
    if (inRule_ && !declarations_.empty()) {
        if (declarations_.size() > kProperties) {
            dropOutdone();
        }
        std::vector<Selector> selectors = selectorsOf(prelude_);
        if (!selectors.empty()) {
            blocks_.push_back(declarations_);
        }
        for (Selector &selector : selectors) {
            const std::uint64_t key = s_keyOf(selector.parts.back());
            mayKnow_[key % kFilterBits] = true;
            Bucket &bucket = buckets_[key];
            const std::size_t place = selectors_.size();
            selectors_.push_back({std::move(selector), blocks_.size() - 1, kNone});
            (bucket.first == kNone ? bucket.first : selectors_[bucket.last].next) = place;
            bucket.last = place;
        }
    }
    inRule_ = false;
}

void StyleSheet::end() {
    if (openBlocks_ == 1) {
        declareInRule();
        endRule();
    }
    endPiece();
}

void StyleSheet::declare(const ElementFacts &facts, std::span<const OpenPlace> around,
                         Declarations &declared) {
    if (selectors_.empty()) {
        return;
    }
    const auto take = [&](std::uint64_t key) {
        if (!mayKnow_[key % kFilterBits]) {
            return;
        }
        if (const auto found = buckets_.find(key); found != buckets_.end()) {
            apply(found->second.first, facts, around, declared);
        }
    };
    take(s_key(BucketKind::Any, 0));
    take(s_key(BucketKind::Name, facts.name));
    for (const std::uint32_t hash : facts.classes) {
        take(s_key(BucketKind::Class, hash));
    }
    if (facts.id != 0) {
        take(s_key(BucketKind::Id, facts.id));
    }
}

// Rules are tried in whatever order: priorities tell which of two counts. Later ones of the same
// weight outdo earlier ones.
void StyleSheet::apply(std::size_t first, const ElementFacts &facts,
                       std::span<const OpenPlace> around, Declarations &declared) {
    constexpr unsigned int kOrderBits = 24;
    for (std::size_t place = first; place != kNone; place = selectors_[place].next) {
        if (work_ == 0) {
            hasGivenUp_ = true;
            return;
        }
        const Rule &rule = selectors_[place];
        if (!matches(rule.selector, facts, around, work_)) {
            continue;
        }
        const std::uint64_t priority =
            (std::uint64_t{rule.selector.specificity} << kOrderBits | (rule.block + 1)) +
            kAttributePriority;
        for (Declaration declaration : blocks_[rule.block]) {
            work_ -= std::min<std::size_t>(work_, 1);
            if (rule.selector.isDoubtful) {
                const auto rest = s_inDoubt(declaration);
                if (!rest) {
                    continue;
                }
                declaration = *rest;
            }
            declared.set(declaration.property, declaration.value,
                         priority | (declaration.isImportant ? kImportantPriority : 0));
        }
    }
}

} // namespace Corvane::Html
