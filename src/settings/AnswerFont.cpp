#include "settings/AnswerFont.h"

#include "settings/AppSettings.h"

#include <QFontDatabase>
#include <QGuiApplication>

namespace {

QFont sized(QFont font, qreal pointSize, QFont::Weight weight)
{
    if (pointSize > 0)
        font.setPointSizeF(pointSize);
    font.setWeight(weight);
    return font;
}

} // namespace

bool AnswerFont::isInstalled(const QString &family)
{
    const QStringList families = QFontDatabase::families();
    return families.contains(family, Qt::CaseInsensitive);
}

QFont AnswerFont::font(const QString &family, qreal pointSize, QFont::Weight weight)
{
    if (family.isEmpty())
        return sized(QGuiApplication::font(), pointSize, weight);
    if (family == QLatin1String(AppSettings::monospacedFontFamily))
        return sized(QFontDatabase::systemFont(QFontDatabase::FixedFont), pointSize, weight);
    if (isInstalled(family)) {
        QFont custom(family);
        return sized(custom, pointSize, weight);
    }
    return sized(QGuiApplication::font(), pointSize, weight);
}

QFont AnswerFont::font(const AppSettings &settings, qreal pointSize, QFont::Weight weight)
{
    return font(settings.fontFamily(), pointSize, weight);
}
