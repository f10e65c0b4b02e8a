#pragma once

#include <QString>
#include <QtGlobal>

// One audio input device: a source of the sound server that is not a monitor.
struct AudioInputDevice
{
    quint32 id = 0;          // the server's source index
    QString uid;             // the source name, stable across restarts
    QString name;            // its description, or "Device <id>" without one
    int channelCount = 1;    // at least 1
    double sampleRate = 0.0; // Hz, 0.0 when unknown

    // "<name> — <n> ch @ <rate> Hz"
    QString label() const
    {
        return name + QStringLiteral(" — ") + QString::number(channelCount) + QStringLiteral(" ch @ ")
            + QString::number(qint64(sampleRate)) + QStringLiteral(" Hz");
    }

    friend bool operator==(const AudioInputDevice &, const AudioInputDevice &) = default;
};
