#pragma once

#include <QFont>

#include <functional>

// The three fonts of a card, made from the answer text size: the question one point larger
// and semibold, the answer at the size, the meta line four points smaller but never below 9.
struct CardFonts
{
    QFont question;
    QFont answer;
    QFont meta;

    static constexpr double minimumMetaSize = 9.0;

    // `fontFor` makes the font of the chosen family at a size and weight.
    static CardFonts make(double fontSize, const std::function<QFont(double size, QFont::Weight weight)> &fontFor);
    static double questionSize(double fontSize) { return fontSize + 1; }
    static double metaSize(double fontSize) { return fontSize - 4 < minimumMetaSize ? minimumMetaSize : fontSize - 4; }
};
