#include "ui/AnswerServiceCheckBox.h"

#include "settings/AppSettings.h"

#include <QSignalBlocker>

AnswerServiceCheckBox::AnswerServiceCheckBox(AppSettings &settings, QWidget *parent)
    : QCheckBox(tr("Transcribe my answers with OpenAI (more accurate; sends your microphone audio to the service)"), parent)
{
    setChecked(settings.transcribeAnswersWithService());
    setToolTip(tr("Off: your answers are transcribed on this computer and no microphone audio leaves it. "
                  "Applies from the next Start."));
    connect(this, &QCheckBox::toggled, &settings, &AppSettings::setTranscribeAnswersWithService);
    connect(&settings, &AppSettings::transcribeAnswersWithServiceChanged, this, [this](bool on) {
        const QSignalBlocker blocker(this);
        setChecked(on);
    });
}
