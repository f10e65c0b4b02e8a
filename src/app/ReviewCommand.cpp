#include "app/ReviewCommand.h"

#include "app/ConsoleText.h"
#include "review/ReviewPage.h"

#include <QFileInfo>

int ReviewCommand::run(const QString &path, ReviewFigures::Band band, std::FILE *out, std::FILE *err)
{
    const ReviewPage::Written written = ReviewPage::write(path, band);
    if (written.unreadable) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: ") + written.error + QLatin1Char('\n'));
        return 2;
    }
    if (!written.ok()) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: could not write the review page: ") + written.error + QLatin1Char('\n'));
        return 1;
    }
    ConsoleText::write(out, QFileInfo(written.path).absoluteFilePath() + QLatin1Char('\n'));
    return 0;
}
