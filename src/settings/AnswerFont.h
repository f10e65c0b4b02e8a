#pragma once

#include <QFont>
#include <QString>

class AppSettings;

// The font answer text is drawn in. Needs QtGui, so it lives in kb_settings_gui.
class AnswerFont
{
public:
    // "" is the application's default font, "__mono" the system fixed-width font, any other
    // name that family when it is installed and the default font when it is not.
    static QFont font(const QString &family, qreal pointSize, QFont::Weight weight);
    // The same with the family from the settings.
    static QFont font(const AppSettings &settings, qreal pointSize, QFont::Weight weight);
    // True when the family is installed (compared case-insensitively).
    static bool isInstalled(const QString &family);
};
