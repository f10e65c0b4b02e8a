#pragma once

#include <QCheckBox>

class AppSettings;

// "Transcribe my answers with OpenAI (…)": the opt-in that sends the microphone to the
// service's transcription session. Bound to the setting both ways; off by default.
class AnswerServiceCheckBox final : public QCheckBox
{
    Q_OBJECT
public:
    explicit AnswerServiceCheckBox(AppSettings &settings, QWidget *parent = nullptr);
};
