// Question and answer cards: transcripts, streamed answer text, follow-up merges.

#include "session/SessionController.h"

#include "session/RealtimeLink.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <array>

namespace {

// Openers that mark a transcript as continuing the previous question.
const std::array<QLatin1StringView, 26> kFollowUpOpeners = {
    QLatin1StringView("and "),          QLatin1StringView("also "),        QLatin1StringView("plus "),
    QLatin1StringView("or "),           QLatin1StringView("but "),         QLatin1StringView("so "),
    QLatin1StringView("as in "),        QLatin1StringView("i mean "),      QLatin1StringView("sorry "),
    QLatin1StringView("specifically "), QLatin1StringView("in particular "), QLatin1StringView("for example "),
    QLatin1StringView("for instance "), QLatin1StringView("especially "),  QLatin1StringView("particularly "),
    QLatin1StringView("including "),    QLatin1StringView("such as "),     QLatin1StringView("like "),
    QLatin1StringView("maybe "),        QLatin1StringView("just "),        QLatin1StringView("actually "),
    QLatin1StringView("what i mean "),  QLatin1StringView("to be clear "), QLatin1StringView("that is "),
    QLatin1StringView("ie "),           QLatin1StringView("eg "),
};

} // namespace

int SessionController::indexOfPair(const QString &id) const
{
    for (int i = int(m_pairs.size()) - 1; i >= 0; --i) {
        if (m_pairs.at(i).id == id) {
            return i;
        }
    }
    return -1;
}

int SessionController::indexOfResponse(const QString &responseID) const
{
    for (int i = int(m_pairs.size()) - 1; i >= 0; --i) {
        if (m_pairs.at(i).responseID == responseID) {
            return i;
        }
    }
    return -1;
}

void SessionController::appendPair(const QAPair &pair)
{
    m_pairs.append(pair);
    emit pairInserted(int(m_pairs.size()) - 1);
}

void SessionController::ingestTranscript(const QString &text)
{
    interviewerTookOver();

    if (!m_pairs.isEmpty() && isContinuation(m_pairs.last(), text)) {
        extendQuestion(int(m_pairs.size()) - 1, text);
        return;
    }

    int filled = -1;
    for (int i = int(m_pairs.size()) - 1; i >= 0; --i) {
        if (m_pairs.at(i).question.isEmpty() && m_pairs.at(i).myAnswer.isEmpty()) {
            filled = i;
            break;
        }
    }
    if (filled >= 0) {
        m_pairs[filled].question = text;
        m_pairs[filled].lastQuestionAt = m_clock.now();
        emit pairChanged(filled);
    } else {
        appendPair(QAPair::make(text, std::nullopt, m_clock.now(), m_clock.wallNow()));
    }

    // Keyed by the newest card even when an older one was filled in.
    const QString newestID = m_pairs.last().id;
    m_questionAt.insert(newestID, m_clock.now());
    appendEvent(QStringLiteral("question"), {{QStringLiteral("text"), text},
                                             {QStringLiteral("pair"), newestID},
                                             {QStringLiteral("you_were_speaking"), m_isSpeaking}});
}

bool SessionController::isContinuation(const QAPair &pair, const QString &text) const
{
    const double window = m_settings.followUpWindow();
    if (!(window > 0) || pair.question.isEmpty() || !pair.screenThumbnail.isEmpty()) {
        return false;   // a screen question is never extended by speech
    }
    if (Clock::secondsBetween(pair.lastQuestionAt, m_clock.now()) > window) {
        return false;
    }
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty()) {
        return false;
    }
    const QString lower = trimmed.toLower();
    for (const QLatin1StringView opener : kFollowUpOpeners) {
        if (lower.startsWith(opener)) {
            return true;
        }
    }
    if (trimmed.at(0).isLower()) {
        return true;
    }
    const QString previous = TextRules::trimBlanks(pair.question);
    if (previous.isEmpty()) {
        return false;
    }
    const QChar last = previous.back();
    return last != QLatin1Char('.') && last != QLatin1Char('?') && last != QLatin1Char('!');
}

void SessionController::extendQuestion(int index, const QString &text)
{
    QAPair &pair = m_pairs[index];
    QString merged = pair.question + QLatin1Char(' ') + text;
    merged.replace(QStringLiteral("  "), QStringLiteral(" "));   // one pass: three blanks become two
    merged = TextRules::trimBlanks(merged);

    if (pair.responseID) {
        m_supersededResponses.insert(*pair.responseID);
    }
    pair.question = merged;
    pair.lastQuestionAt = m_clock.now();
    pair.wasExtended = true;
    pair.answer.clear();
    pair.isComplete = false;
    pair.responseID.reset();
    const QString id = pair.id;
    emit pairChanged(index);

    m_questionAt.insert(id, m_clock.now());
    m_firstTokenSeen.remove(id);
    appendEvent(QStringLiteral("question_extended"), {{QStringLiteral("merged"), merged},
                                                      {QStringLiteral("added"), text},
                                                      {QStringLiteral("pair"), id}});
    m_client.regenerate(merged);
}

void SessionController::ingestDelta(const QString &responseID, const QString &delta)
{
    if (m_supersededResponses.contains(responseID)) {
        return;
    }

    int index = indexOfResponse(responseID);
    if (index < 0) {
        for (int i = int(m_pairs.size()) - 1; i >= 0 && index < 0; --i) {
            if (!m_pairs.at(i).responseID && !m_pairs.at(i).isComplete && m_screenPairID != m_pairs.at(i).id) {
                index = i;
                m_pairs[i].responseID = responseID;
                emit pairChanged(i);
            }
        }
    }
    if (index < 0) {
        // The answer has overtaken its question; the transcript fills it in later.
        appendPair(QAPair::make(QString(), responseID, m_clock.now(), m_clock.wallNow()));
        index = int(m_pairs.size()) - 1;
    }
    if (delta.isEmpty()) {
        return;
    }

    const QString id = m_pairs.at(index).id;
    if (!m_firstTokenSeen.contains(id)) {
        m_firstTokenSeen.insert(id);
        QVariantMap fields{{QStringLiteral("pair"), id},
                           {QStringLiteral("response"), responseID},
                           {QStringLiteral("you_were_speaking"), m_isSpeaking}};
        const auto heard = m_questionAt.constFind(id);
        if (heard != m_questionAt.constEnd()) {
            fields.insert(QStringLiteral("latency_after_question_s"),
                          CostModel::rounded(Clock::secondsBetween(*heard, m_clock.now()), 3));
        }
        appendEvent(QStringLiteral("answer_started"), fields);
    }
    m_pairs[index].answer += delta;
    emit pairChanged(index);
}

void SessionController::completeResponse(const QString &responseID)
{
    if (m_supersededResponses.remove(responseID)) {
        return;
    }

    const int index = indexOfResponse(responseID);
    if (index >= 0) {
        QAPair &pair = m_pairs[index];
        pair.isComplete = true;
        emit pairChanged(index);
        appendEvent(QStringLiteral("answer_done"), {{QStringLiteral("pair"), pair.id},
                                                    {QStringLiteral("chars"), qint64(TextRules::characterCount(pair.answer))},
                                                    {QStringLiteral("question"), pair.question},
                                                    {QStringLiteral("answer"), pair.answer}});
    } else {
        for (int i = int(m_pairs.size()) - 1; i >= 0; --i) {
            if (!m_pairs.at(i).isComplete) {
                m_pairs[i].isComplete = true;
                emit pairChanged(i);
                break;
            }
        }
    }

    removeEmptyCompletePairs();
    pushHistory();
}

void SessionController::removeEmptyCompletePairs()
{
    const qsizetype removed = m_pairs.removeIf([](const QAPair &pair) {
        return pair.isComplete && pair.question.isEmpty() && pair.answer.isEmpty() && pair.myAnswer.isEmpty();
    });
    if (removed > 0) {
        emit pairsReset();
    }
}

void SessionController::pushHistory()
{
    History history;
    for (const QAPair &pair : std::as_const(m_pairs)) {
        if (!pair.question.isEmpty() || !pair.answer.isEmpty()) {
            history.append(HistoryEntry{pair.question, pair.answer});
        }
    }
    m_client.updateHistory(history);
}

void SessionController::recordUsage(const QVariantMap &usage)
{
    const CostModel::Usage response = CostModel::parse(usage);
    m_sessionUsage.add(response);
    const double minutes = CostModel::minutes(m_sessionElapsed);
    const double sessionCost = m_sessionUsage.cost();
    appendEvent(QStringLiteral("usage"), {{QStringLiteral("audio_in"), response.audioInput},
                                          {QStringLiteral("audio_in_cached"), response.audioInputCached},
                                          {QStringLiteral("text_in"), response.textInput},
                                          {QStringLiteral("text_in_cached"), response.textInputCached},
                                          {QStringLiteral("text_out"), response.textOutput},
                                          {QStringLiteral("response_cost_usd"), CostModel::rounded(response.cost(), 5)},
                                          {QStringLiteral("session_cost_usd"), CostModel::rounded(sessionCost, 5)},
                                          {QStringLiteral("session_cost_per_min_usd"), CostModel::rounded(sessionCost / minutes, 4)}});
}
