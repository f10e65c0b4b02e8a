#include "ui/CardFonts.h"

CardFonts CardFonts::make(double fontSize, const std::function<QFont(double, QFont::Weight)> &fontFor)
{
    CardFonts fonts;
    fonts.question = fontFor(questionSize(fontSize), QFont::DemiBold);
    fonts.answer = fontFor(fontSize, QFont::Normal);
    fonts.meta = fontFor(metaSize(fontSize), QFont::Normal);
    return fonts;
}
