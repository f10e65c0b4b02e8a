#pragma once

#include <QByteArray>
#include <QList>

// A plain energy detector for 24 kHz mono 16-bit PCM, in 10 ms frames. A frame is voiced
// when its RMS, as a fraction of full scale, reaches threshold / 10 (so the default 0.5
// means about -26 dBFS). Speech starts at the first voiced frame, reported `prefixPaddingMs`
// earlier; it stops once `silenceDurationMs` of unvoiced frames have followed, reported at
// the end of the last voiced frame.
class EnergyVad
{
public:
    struct Event
    {
        bool started = false; // false: stopped
        qint64 audioMs = 0;   // position in the audio received so far
    };

    void configure(double threshold, int prefixPaddingMs, int silenceDurationMs);
    QList<Event> feed(const QByteArray &pcm16);

private:
    void frame(const qint16 *samples, QList<Event> &events);

    double m_threshold = 0.5;
    int m_prefixPaddingMs = 300;
    int m_silenceDurationMs = 500;
    QByteArray m_partial;
    qint64 m_frames = 0;
    bool m_inSpeech = false;
    qint64 m_lastVoicedEndMs = 0;
    int m_silentMs = 0;
};
