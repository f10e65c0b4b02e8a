#include "review/SessionReview.h"

#include "review/EventLogReader.h"
#include "review/RecordingActivity.h"
#include "review/ReviewLogging.h"
#include "review/TranscriptReader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

namespace {

const QString kEventsSuffix = QStringLiteral(".events.jsonl");
const QString kTranscriptSuffix = QStringLiteral(".transcript.md");

QString stampOf(const QString &path)
{
    QString name = QFileInfo(path).fileName();
    for (const QString &suffix : {kEventsSuffix, kTranscriptSuffix, QStringLiteral(".review.html")}) {
        if (name.endsWith(suffix)) {
            name.chop(suffix.size());
            break;
        }
    }
    if (name.startsWith(QLatin1String("meeting_")))
        name.remove(0, 8);
    return name;
}

// The records' common name without its ending: "<dir>/meeting_<stamp>".
QString basePath(const QString &path)
{
    QString base = path;
    for (const QString &suffix : {kEventsSuffix, kTranscriptSuffix}) {
        if (base.endsWith(suffix))
            return base.chopped(suffix.size());
    }
    return base;
}

// Fills what the log lacks from the transcript (matched by question), or builds the cards
// from the transcript alone.
void mergeTranscript(SessionReview &review, const QList<TranscriptReader::Entry> &entries)
{
    const bool fromTranscriptOnly = review.cards.isEmpty();
    for (const TranscriptReader::Entry &entry : entries) {
        SessionReview::Card *match = nullptr;
        for (SessionReview::Card &card : review.cards) {
            if (card.question == entry.question) {
                match = &card;
                break;
            }
        }
        if (!match && fromTranscriptOnly) {
            review.cards << SessionReview::Card{};
            match = &review.cards.last();
            match->question = entry.question;
        }
        if (!match)
            continue;
        if (match->draft.isEmpty())
            match->draft = entry.draft;
        if (match->yourAnswer.isEmpty())
            match->yourAnswer = entry.you;
    }
}

const QString kNoSpeechNote = SessionReview::tr("This session's log has no interviewer speech (none was heard, or an "
                                                "older version did not record it): the timeline shows questions and "
                                                "your answer timer only.");

// For a log that does not record the interviewer's speech: an estimate from the meeting side
// of the session's recording, when there is one.
void hearRecording(SessionReview &review, const QString &eventsPath)
{
    const QString wav = RecordingActivity::recordingFor(eventsPath);
    if (wav.isEmpty())
        return;
    QString why;
    const std::optional<RecordingActivity::Spans> heard = RecordingActivity::read(wav, &why);
    if (!heard) {
        qCWarning(lcReview, "[Ketterbloom] could not read %s: %s", qUtf8Printable(wav), qUtf8Printable(why));
        return;
    }
    review.interviewer = heard->meeting;
    review.hasInterviewerSpeech = true;
    review.notes.removeAll(kNoSpeechNote);
    review.notes.prepend(SessionReview::tr("This session's log does not record when the interviewer spoke: it is "
                                           "estimated from how loud the meeting side of the recording (%1) was.")
                             .arg(QFileInfo(wav).fileName()));
    EventLogReader::linkSpeech(review);
}

} // namespace

SessionReview SessionReview::fromText(const QByteArray &events, const QString &transcript)
{
    SessionReview review;
    EventLogReader reader(review);
    int unreadable = 0;
    for (const QByteArray &line : events.split('\n')) {
        if (line.trimmed().isEmpty())
            continue;
        QJsonParseError error{};
        const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
        if (error.error != QJsonParseError::NoError || !doc.isObject()) {
            ++unreadable;   // a line cut short by a crash, say: the rest still counts
            continue;
        }
        reader.read(doc.object());
    }
    reader.finish();
    if (!transcript.isEmpty())
        mergeTranscript(review, TranscriptReader::read(transcript));
    if (review.length <= 0 && !transcript.isEmpty())
        review.length = TranscriptReader::lengthSeconds(transcript).value_or(0);

    if (events.trimmed().isEmpty())
        review.notes << tr("No events log: the questions and answers come from the transcript only.");
    else if (!review.hasInterviewerSpeech)
        review.notes << kNoSpeechNote;
    if (!events.trimmed().isEmpty() && !review.ended)
        review.notes << tr("The events log ends before the session's end (the program may have stopped "
                           "unexpectedly): the figures cover what was recorded.");
    if (unreadable > 0)
        review.notes << (unreadable == 1 ? tr("One line of the events log could not be read and was skipped.")
                                         : tr("%1 lines of the events log could not be read and were skipped.").arg(unreadable));
    if (!events.trimmed().isEmpty() && review.answers.isEmpty())
        review.notes << tr("No answers of yours were timed (the microphone was off or silent).");
    if (!review.totalCost && !review.costByModel.isEmpty()) {
        double sum = 0;
        for (double cost : std::as_const(review.costByModel))
            sum += cost;
        review.totalCost = sum;
    }
    return review;
}

SessionReview::Loaded SessionReview::load(const QString &path, bool readRecording)
{
    const QFileInfo info(path);
    if (!info.exists())
        return {std::nullopt, tr("%1: no such file").arg(path)};
    if (!info.isFile())
        return {std::nullopt, tr("%1: not a file").arg(path)};
    const bool isTranscript = path.endsWith(kTranscriptSuffix) || path.endsWith(QLatin1String(".md"));
    if (!isTranscript && !path.endsWith(QLatin1String(".jsonl")))
        return {std::nullopt, tr("%1: not a session's events log (.events.jsonl) or transcript (.transcript.md)").arg(path)};

    QString eventsPath = isTranscript ? basePath(path) + kEventsSuffix : path;
    QString transcriptPath = isTranscript ? path : basePath(path) + kTranscriptSuffix;
    QString transcript;
    if (QFile file(transcriptPath); file.open(QIODevice::ReadOnly)) {
        transcript = QString::fromUtf8(file.readAll());
        if (isTranscript && !transcript.startsWith(QLatin1String("# Meeting transcript")))
            return {std::nullopt, tr("%1: not a session's transcript").arg(path)};
        if (isTranscript) {
            // The transcript names its events log.
            static const QRegularExpression named(QStringLiteral("^Events: `([^`/]+)`$"), QRegularExpression::MultilineOption);
            const QRegularExpressionMatch match = named.match(transcript);
            if (match.hasMatch())
                eventsPath = info.dir().filePath(match.captured(1));
        }
    } else if (isTranscript) {
        return {std::nullopt, QStringLiteral("%1: %2").arg(path, file.errorString())};
    } else {
        transcriptPath.clear();
    }
    QByteArray events;
    if (QFile file(eventsPath); file.open(QIODevice::ReadOnly)) {
        events = file.readAll();
    } else if (!isTranscript) {
        return {std::nullopt, QStringLiteral("%1: %2").arg(path, file.errorString())};
    } else {
        eventsPath.clear();
    }
    if (!isTranscript && !events.trimmed().isEmpty() && (!events.trimmed().startsWith('{') || !events.contains("\"event\":")))
        return {std::nullopt, tr("%1: not a session's events log").arg(path)};

    SessionReview review = fromText(events, transcript);
    if (readRecording && !review.hasInterviewerSpeech && !eventsPath.isEmpty())
        hearRecording(review, eventsPath);
    review.stamp = stampOf(path);
    review.eventsPath = eventsPath;
    review.transcriptPath = transcriptPath;
    qCDebug(lcReview, "[Ketterbloom] read %s: %lld card(s), %lld answer(s)", qUtf8Printable(path),
           qint64(review.cards.size()), qint64(review.answers.size()));
    return {review, QString()};
}

QString SessionReview::pagePathFor(const QString &eventsOrTranscriptPath)
{
    return basePath(eventsOrTranscriptPath) + QStringLiteral(".review.html");
}
