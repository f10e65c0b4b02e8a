#pragma once

#include "ui/AudioEnvironment.h"

#include <QObject>

#include <memory>

class MicInput;

// The settings' and onboarding's view of this computer's audio, from the sound server.
class PulseAudioEnvironment final : public QObject, public AudioEnvironment
{
    Q_OBJECT
public:
    explicit PulseAudioEnvironment(QObject *parent = nullptr);
    ~PulseAudioEnvironment() override;

    bool soundServerAvailable() override;
    QList<InputDevice> inputDevices() override;
    bool startMicLevel(const QString &deviceUID, std::function<void(float level)> onLevel) override;
    void stopMicLevel() override;

private:
    std::unique_ptr<MicInput> m_mic;
    std::function<void(float)> m_onLevel;
};
