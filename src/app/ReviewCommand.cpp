#include "app/ReviewCommand.h"

#include "app/ConsoleText.h"
#include "review/ReviewPage.h"

#include <QFileInfo>

int ReviewCommand::run(const QString &path, ReviewFigures::Band band, std::FILE *out, std::FILE *err)
{
    const ReviewPage::Written written = ReviewPage::write(path, band);
    if (written.unreadable) {
        ConsoleText::writeError(err, written.error);
        return 2;
    }
    if (!written.ok()) {
        ConsoleText::writeError(err, tr("could not write the review page: %1").arg(written.error));
        return 1;
    }
    ConsoleText::write(out, QFileInfo(written.path).absoluteFilePath() + QLatin1Char('\n'));
    return 0;
}
