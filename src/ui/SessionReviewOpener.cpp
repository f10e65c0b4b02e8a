#include "ui/SessionReviewOpener.h"

#include "review/ReviewPage.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QMessageBox>
#include <QUrl>

void SessionReviewOpener::run(const AppSettings &settings, QWidget *parent)
{
    const QString path = QFileDialog::getOpenFileName(
        parent, tr("Review a Session"), SessionController::sessionFolder(),
        tr("Session records (*.events.jsonl *.transcript.md);;All files (*)"));
    if (path.isEmpty())
        return;
    const QString error = open(path, settings);
    if (!error.isEmpty())
        QMessageBox::warning(parent, tr("Review a Session"), tr("No review page: %1").arg(error));
}

QString SessionReviewOpener::open(const QString &path, const AppSettings &settings)
{
    const ReviewPage::Written page =
        ReviewPage::write(path, {settings.answerTargetMinSeconds(), settings.answerTargetMaxSeconds()});
    if (!page.ok())
        return page.error;
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(page.path)))
        return tr("the page was written to %1, but no browser could open it").arg(page.path);
    return {};
}
