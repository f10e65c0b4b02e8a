#include "session/QAPair.h"

#include <QUuid>

const QString QAPair::listeningText = tr("Listening…");
const QString QAPair::untranscribedText = tr("(the question could not be transcribed)");
const QString QAPair::notTranscribedText = tr("(the question was not transcribed)");
const QString QAPair::cutShortNote = tr("answer cut short");
const QString QAPair::truncatedNote = tr("answer truncated");

QString QAPair::couldNotAnswerNote(const QString &reason)
{
    const QString trimmed = reason.trimmed();
    return trimmed.isEmpty() ? tr("the service could not answer") : tr("the service could not answer: %1").arg(trimmed);
}

QAPair QAPair::make(const QString &question, std::optional<QString> responseID,
                    Clock::TimePoint now, const QDateTime &wallNow)
{
    QAPair pair;
    pair.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    pair.timestamp = wallNow.toString(QStringLiteral("HH:mm:ss"));
    pair.question = question;
    pair.responseID = std::move(responseID);
    pair.lastQuestionAt = now;
    return pair;
}

QString QAPair::displayQuestion() const
{
    if (questionFailed) {
        return untranscribedText;
    }
    if (questionMissing) {
        return notTranscribedText;
    }
    if (questionInProgress && question.isEmpty()) {
        return listeningText;
    }
    return question;
}

QString QAPair::recordedQuestion() const
{
    if (questionFailed) {
        return untranscribedText;
    }
    return questionMissing ? notTranscribedText : question;
}

size_t qHash(const QAPair &pair, size_t seed)
{
    QtPrivate::QHashCombine combine;
    seed = combine(seed, pair.id);
    seed = combine(seed, pair.timestamp);
    seed = combine(seed, pair.question);
    seed = combine(seed, pair.answer);
    seed = combine(seed, pair.isComplete);
    seed = combine(seed, pair.responseID.has_value());
    seed = combine(seed, pair.responseID.value_or(QString()));
    seed = combine(seed, pair.wasExtended);
    seed = combine(seed, static_cast<qint64>(pair.lastQuestionAt.time_since_epoch().count()));
    seed = combine(seed, pair.myAnswer);
    seed = combine(seed, pair.myAnswerInProgress);
    seed = combine(seed, pair.screenThumbnail);
    seed = combine(seed, pair.itemID);
    seed = combine(seed, pair.questionInProgress);
    seed = combine(seed, pair.questionFailed);
    seed = combine(seed, pair.questionMissing);
    seed = combine(seed, pair.answerNote);
    return seed;
}
