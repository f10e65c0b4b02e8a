#include "app/PulseAudioEnvironment.h"

#include "audio/AudioDeviceManager.h"
#include "audio/MicInput.h"
#include "audio/ProcessTapCapture.h"

#include <QElapsedTimer>
#include <QPointer>

#include <algorithm>
#include <atomic>
#include <cmath>

namespace {
constexpr int kStartTimeoutMs = 1500;
constexpr qint64 kLevelIntervalMs = 50;
} // namespace

PulseAudioEnvironment::PulseAudioEnvironment(QObject *parent)
    : QObject(parent)
{
}

PulseAudioEnvironment::~PulseAudioEnvironment()
{
    stopMicLevel();
}

bool PulseAudioEnvironment::soundServerAvailable()
{
    return ProcessTapCapture::probeTapAccess();
}

QList<AudioEnvironment::InputDevice> PulseAudioEnvironment::inputDevices()
{
    QList<InputDevice> devices;
    for (const AudioInputDevice &device : AudioDeviceManager::inputDevices())
        devices.append(InputDevice{device.uid, device.label(), device.channelCount});
    return devices;
}

bool PulseAudioEnvironment::startMicLevel(const QString &deviceUID, std::function<void(float)> onLevel)
{
    stopMicLevel();
    QString source = deviceUID;
    if (source.isEmpty() || !AudioDeviceManager::device(source)) {
        const auto fallback = AudioDeviceManager::defaultInputDevice();
        if (!fallback)
            return false;
        source = fallback->uid;
    }
    auto mic = std::make_unique<MicInput>();
    if (!mic->bind(source).ok())
        return false;
    m_onLevel = std::move(onLevel);

    // The stream's thread measures the peak of each 50 ms and posts it here.
    const int channels = std::max(1, mic->channelCount());
    QPointer<PulseAudioEnvironment> self(this);
    auto peak = std::make_shared<float>(0.0f);
    auto clock = std::make_shared<QElapsedTimer>();
    clock->start();
    mic->onFrames = [self, peak, clock, channels](const float *interleaved, int frames) {
        const int count = frames * channels;
        for (int i = 0; i < count; ++i)
            *peak = std::max(*peak, std::fabs(interleaved[i]));
        if (clock->elapsed() < kLevelIntervalMs)
            return;
        clock->restart();
        const float level = std::min(*peak, 1.0f);
        *peak = 0.0f;
        QMetaObject::invokeMethod(
            self.data(),
            [self, level] {
                if (self && self->m_onLevel)
                    self->m_onLevel(level);
            },
            Qt::QueuedConnection);
    };
    if (!mic->startStream(kStartTimeoutMs).ok()) {
        m_onLevel = nullptr;
        return false;
    }
    m_mic = std::move(mic);
    return true;
}

void PulseAudioEnvironment::stopMicLevel()
{
    m_mic.reset();
    m_onLevel = nullptr;
}
