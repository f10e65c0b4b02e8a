#pragma once

#include <QList>
#include <QString>

#include <functional>

// What the settings and the onboarding need to know about this computer's audio: whether
// the sound server answers, which input devices there are, and a live microphone level for
// the onboarding's check. Called on the GUI thread; level reports arrive there too.
class AudioEnvironment
{
public:
    struct InputDevice
    {
        QString uid;        // stable id, stored in the deviceUID setting
        QString label;      // what the user sees
        int channelCount = 1;

        friend bool operator==(const InputDevice &, const InputDevice &) = default;
    };

    virtual ~AudioEnvironment() = default;

    virtual bool soundServerAvailable() = 0;
    virtual QList<InputDevice> inputDevices() = 0;
    // Starts reporting the level (0...1) of the default (or chosen) microphone, a few
    // times a second, until stopMicLevel(). Returns false when no microphone can be opened.
    virtual bool startMicLevel(const QString &deviceUID, std::function<void(float level)> onLevel) = 0;
    virtual void stopMicLevel() = 0;
};
