#include "host/parser/html/Look.h"

namespace Corvane::Html {

namespace {

// How the box of an element stands among others.
enum class Box { Inline, Block, InlineBlock, TablePart };

Box s_boxOf(const Element &element, const Declarations &declared) {
    Box box = element.is(Trait::kBlock) ? Box::Block : Box::Inline;
    if (element.is(Trait::kTablePart | Trait::kCell)) {
        box = Box::TablePart;
    } else if (element.is(Trait::kControl)) {
        box = Box::InlineBlock;
    }
    switch (declared[Property::Display].keyword) {
    case Keyword::Inline:
    case Keyword::Initial:
    case Keyword::Inherit:
        box = Box::Inline;
        break;
    case Keyword::Block:
        box = Box::Block;
        break;
    case Keyword::InlineBlock:
        box = Box::InlineBlock;
        break;
    case Keyword::Cell:
    case Keyword::TablePart:
        box = Box::TablePart;
        break;
    default:
        break;
    }
    const bool floats = declared[Property::Float].keyword == Keyword::Block ||
                        declared[Property::Position].keyword == Keyword::OutOfFlow;
    return floats && box == Box::Inline ? Box::InlineBlock : box;
}

bool s_isZero(const Declarations &declared, Property property) {
    return declared[property].keyword == Keyword::Zero;
}

bool s_isMore(const Declarations &declared, Property property) {
    return declared[property].keyword == Keyword::Other;
}

// A box without height or width shows nothing of its text where it cuts off what does not fit;
// there is room for text inside its padding, though.
bool s_isClipped(Box box, const Declarations &declared) {
    if (box != Box::Block && box != Box::InlineBlock) {
        return false;
    }
    const bool flat =
        (s_isZero(declared, Property::Height) || s_isZero(declared, Property::MaxHeight)) &&
        !s_isMore(declared, Property::MinHeight) && !s_isMore(declared, Property::PaddingTop) &&
        !s_isMore(declared, Property::PaddingBottom) &&
        declared[Property::OverflowY].keyword == Keyword::Hidden;
    const bool narrow =
        (s_isZero(declared, Property::Width) || s_isZero(declared, Property::MaxWidth)) &&
        !s_isMore(declared, Property::MinWidth) && !s_isMore(declared, Property::PaddingLeft) &&
        !s_isMore(declared, Property::PaddingRight) &&
        declared[Property::OverflowX].keyword == Keyword::Hidden;
    return flat || narrow;
}

void s_applyFont(const Declarations &declared, const Look &parent, Look &look) {
    switch (declared[Property::FontSize].keyword) {
    case Keyword::Inherit:
        look.isTiny = parent.isTiny;
        break;
    case Keyword::Zero:
        look.isTiny = true;
        break;
    case Keyword::Other:
    case Keyword::Initial:
        look.isTiny = false;
        break;
    default:
        break;
    }
    switch (declared[Property::WhiteSpace].keyword) {
    case Keyword::Preserved:
        look.isPreserved = true;
        break;
    case Keyword::Other:
    case Keyword::Initial:
        look.isPreserved = false;
        break;
    default:
        break;
    }
    switch (declared[Property::Visibility].keyword) {
    case Keyword::Hidden:
        look.isInvisible = true;
        break;
    case Keyword::Visible:
    case Keyword::Initial:
        look.isInvisible = false;
        break;
    default:
        break;
    }
}

void s_applyColours(const Declarations &declared, const Look &parent, Look &look) {
    const Value &colour = declared[Property::Colour];
    if (colour.keyword == Keyword::Colour) {
        look.colour = colour.colour;
    } else if (colour.keyword != Keyword::Unset) {
        look.colour = colour.keyword == Keyword::Inherit ? parent.colour : Colour();
    }
    const Value &background = declared[Property::Background];
    if (background.keyword == Keyword::Colour &&
        background.colour.kind != ColourKind::Transparent) {
        look.background = background.colour;
    }
    if (declared[Property::BackgroundImage].keyword == Keyword::Other ||
        declared[Property::Position].keyword == Keyword::OutOfFlow) {
        // Whatever is behind it now.
        look.background = background.keyword == Keyword::Colour &&
                                  declared[Property::BackgroundImage].keyword != Keyword::Other
                              ? look.background
                              : Colour();
    }
    const Keyword paint = declared[Property::Paint].keyword;
    look.isPainted = paint == Keyword::Other || (look.isPainted && paint == Keyword::Unset);
}

} // namespace

bool Look::isHidden() const {
    if (isGone || isClipped || isInvisible || isTiny) {
        return true;
    }
    if (isPainted || colour.kind == ColourKind::Unknown) {
        return false;
    }
    return colour.kind == ColourKind::Transparent || colour == background;
}

Look lookOf(const Element &element, bool isLink, const Declarations &declared, const Look &parent,
            bool inQuirks) {
    Look look = parent;
    look.isBlock = element.is(Trait::kBlock);
    look.isPreserved = look.isPreserved || element.is(Trait::kPreformatted);
    // A script or sheet opens as an element only inside SVG, which draws none of its text.
    look.isGone = look.isGone || element.is(Trait::kNotShown) || element.id == ElementId::Script ||
                  element.id == ElementId::Style;
    look.isForeign = (look.isForeign && element.id != ElementId::ForeignObject) ||
                     element.id == ElementId::Svg || element.id == ElementId::Math;
    if (element.is(Trait::kControl) || element.id == ElementId::Mark) {
        look.colour = Colour();
        look.background = Colour();
    } else if (isLink) {
        look.colour = Colour();
    } else if (element.id == ElementId::Table && inQuirks) {
        look.colour = Colour();
        look.isTiny = false;
    }
    if (declared.isEmpty()) {
        return look;
    }
    const Box box = s_boxOf(element, declared);
    look.isBlock = box == Box::Block || (box == Box::TablePart && element.is(Trait::kBlock));
    look.isGone = look.isGone || declared[Property::Display].keyword == Keyword::None ||
                  s_isZero(declared, Property::Opacity);
    // What leaves its place is cut off by other boxes than the one it is written in.
    if (declared[Property::Position].keyword == Keyword::OutOfFlow) {
        look.isClipped = false;
    }
    look.isClipped = look.isClipped || s_isClipped(box, declared);
    s_applyFont(declared, parent, look);
    s_applyColours(declared, parent, look);
    return look;
}

} // namespace Corvane::Html
