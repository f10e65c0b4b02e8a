#include "ui/DialogRecordingPicker.h"

#include "session/SessionController.h"

#include <QDir>
#include <QFileDialog>

DialogRecordingPicker::DialogRecordingPicker(QObject *parent)
    : QObject(parent)
{
}

void DialogRecordingPicker::pickRecording(std::function<void(const std::optional<QString> &)> completion)
{
    const QString folder = SessionController::sessionFolder();
    auto *dialog = new QFileDialog(m_window, tr("Transcribe Recording"),
                                   QDir(folder).exists() ? folder : QDir::homePath(),
                                   tr("WAV recordings (*.wav *.WAV)"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptOpen);
    dialog->setFileMode(QFileDialog::ExistingFile);
    dialog->setLabelText(QFileDialog::Accept, tr("Transcribe"));
    // One answer only: a choice, or none when the dialog closes without one.
    auto answered = std::make_shared<bool>(false);
    connect(dialog, &QFileDialog::fileSelected, this, [completion, answered](const QString &path) {
        if (std::exchange(*answered, true))
            return;
        completion(path);
    });
    connect(dialog, &QFileDialog::finished, this, [completion, answered](int) {
        if (std::exchange(*answered, true))
            return;
        completion(std::nullopt);
    });
    dialog->open();
}
