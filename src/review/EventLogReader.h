#pragma once

#include "review/SessionReview.h"

#include <QCoreApplication>
#include <QHash>
#include <QMap>
#include <QString>

#include <optional>

class QJsonObject;

// Builds a SessionReview from a session's events log, one event (a parsed line) at a time:
// the cards and their answers, your timed answers, the interviewer's speech, notices for the
// timeline, and the costs. finish() after the last event.
class EventLogReader
{
    Q_DECLARE_TR_FUNCTIONS(EventLogReader)

public:
    explicit EventLogReader(SessionReview &review) : m_review(review) {}

    void read(const QJsonObject &e);
    void finish();

    // Relates the interviewer's speech to the cards (when each question ended) and to your
    // answers (those begun while the interviewer still spoke).
    static void linkSpeech(SessionReview &review);

private:
    SessionReview::Card *find(const QString &pair);
    // A card not yet shown (its answer came first) is kept aside until its question.
    SessionReview::Card *findOrEarly(const QString &pair);
    void addCost(const QString &model, double cost);
    void readHealth(double t, const QJsonObject &e);

    SessionReview &m_review;
    std::optional<double> m_speechStart;
    std::optional<double> m_youStarted;
    QString m_lastAnswered;   // a response's usage follows its answer's start
    QHash<QString, SessionReview::Card> m_early;
    QMap<QString, bool> m_health;   // last state of each audio part
};
