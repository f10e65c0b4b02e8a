#pragma once

#include "speech/MicTranscription.h"
#include "session/ServiceTranscription.h"

#include <QCoreApplication>
#include <QHash>
#include <QObject>
#include <QString>

#include <atomic>
#include <optional>

class AppSettings;

// "My answer" from either transcriber: the on-device one, or, when the user has opted in,
// the service's transcription session. Chosen at each session start from the settings. In
// service mode the service decides where an item ends; its deltas become partial text and its
// completed items final text, while begin()/end() only mark when the user speaks (the
// speaking detector and answer timer stay local). GUI thread, except appendMicBuffer().
class AnswerTranscriber final : public MicTranscription
{
    Q_DECLARE_TR_FUNCTIONS(AnswerTranscriber)

public:
    // `service` may be null (no service transcription available).
    AnswerTranscriber(AppSettings &settings, MicTranscription &onDevice, ServiceTranscription *service);

    bool usesService() const { return m_useService.load(std::memory_order_acquire); }

    void sessionStarted() override;
    void sessionStopped() override;
    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override;
    void setContextText(const QString &text) override { m_onDevice.setContextText(text); }
    void begin() override;
    void end() override;
    void stopTask(bool silent) override;
    bool isSegmentRunning() const override;
    void appendMicBuffer(const float *samples, int frames) override;

private:
    void serviceDelta(const QString &itemID, const QString &delta);
    void serviceCompleted(const QString &itemID, const QString &transcript);

    AppSettings &m_settings;
    MicTranscription &m_onDevice;
    ServiceTranscription *m_service;
    std::atomic<bool> m_useService{false};
    bool m_serviceSegment = false;     // the user is speaking (service mode)
    QHash<QString, QString> m_items;   // text so far of items not yet completed
};
