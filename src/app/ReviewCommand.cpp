#include "app/ReviewCommand.h"

#include "app/ConsoleText.h"
#include "review/ReviewPage.h"
#include "review/SessionReview.h"

#include <QFileInfo>

int ReviewCommand::run(const QString &path, ReviewFigures::Band band, std::FILE *out, std::FILE *err)
{
    const SessionReview::Loaded loaded = SessionReview::load(path);
    if (!loaded.review) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: ") + loaded.error + QLatin1Char('\n'));
        return 2;
    }
    const ReviewPage::Written written = ReviewPage::write(path, band);
    if (!written.ok()) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: could not write the review page: ") + written.error + QLatin1Char('\n'));
        return 1;
    }
    ConsoleText::write(out, QFileInfo(written.path).absoluteFilePath() + QLatin1Char('\n'));
    return 0;
}
