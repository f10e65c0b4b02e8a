#include "app/HeadlessRunner.h"

#include "app/ConsoleText.h"
#include "session/QAPair.h"
#include "session/SessionController.h"
#include "settings/SecretStore.h"

#include <QTimer>

HeadlessRunner::HeadlessRunner(SessionController &controller, std::FILE *out, std::FILE *err,
                               std::optional<double> stopAfterSeconds, QObject *parent)
    : QObject(parent)
    , m_controller(controller)
    , m_out(out)
    , m_err(err)
    , m_stopAfterSeconds(stopAfterSeconds)
{
    const CardBook *cards = &m_controller.cards();
    connect(cards, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &card) { considerCard(card.row()); });
    connect(cards, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex &, int first) { considerCard(first); });
    connect(cards, &QAbstractItemModel::rowsRemoved, this, [this] { considerCard(0); });
    connect(cards, &QAbstractItemModel::modelReset, this, [this] { considerCard(0); });
    connect(&m_controller, &SessionController::bannerChanged, this, &HeadlessRunner::printBanner);
    connect(&m_controller, &SessionController::bannerLinksChanged, this, &HeadlessRunner::printLinks);
    connect(&m_controller, &SessionController::isSessionActiveChanged, this, &HeadlessRunner::sessionActiveChanged);
    connect(&m_controller, &SessionController::startFailed, this, [this] { finish(1); });
}

void HeadlessRunner::run()
{
    m_controller.start();
}

void HeadlessRunner::requestStop()
{
    if (m_stopping || m_finished)
        return;
    m_stopping = true;
    m_controller.stop();
    // Whatever changed after a card was printed: a late question, or the user's own answer,
    // which is printed only now so that its partial texts don't repeat the card.
    const QList<QAPair> pairs = m_controller.pairs();
    for (const QAPair &pair : pairs) {
        if (pair.isComplete)
            printIfChanged(pair, true);
    }
    finish(m_started ? 0 : 1);
}

QString HeadlessRunner::cardBlock(const QAPair &pair, bool withMyAnswer)
{
    // The transcript file's format (its headings and labels are not translated).
    const QString dash = QStringLiteral("—");
    const QString question = pair.recordedQuestion();
    const QString answer = pair.answer.isEmpty() ? dash : pair.answer;
    QString block = (pair.wasExtended ? QStringLiteral("### %1 (question extended)") : QStringLiteral("### %1")).arg(pair.timestamp);
    block += QStringLiteral("\n**Interviewer:** %1").arg(question.isEmpty() ? dash : question);
    block += pair.answerNote.isEmpty() ? QStringLiteral("\n\n**Copilot:** %1").arg(answer)
                                       : QStringLiteral("\n\n**Copilot:** %1 _(%2)_").arg(answer, pair.answerNote);
    if (withMyAnswer && !pair.myAnswer.isEmpty())
        block += QStringLiteral("\n\n**You:** %1").arg(pair.myAnswer);
    block += QStringLiteral("\n\n");
    return block;
}

void HeadlessRunner::considerCard(int index)
{
    Q_UNUSED(index);
    // A card is printed once its answer is complete and its question is known (or known to
    // be missing); an answer that overtook its question waits for it. Cards print in the
    // order they were opened: a later card waits for every earlier one.
    const QList<QAPair> &pairs = m_controller.pairs();
    for (const QAPair &pair : pairs) {
        if (!pair.isComplete || pair.questionInProgress)
            return;
        if (!pair.recordedQuestion().isEmpty())   // a card without a question prints at the stop
            printIfChanged(pair, false);
    }
}

void HeadlessRunner::printIfChanged(const QAPair &pair, bool withMyAnswer)
{
    const QString block = cardBlock(pair, withMyAnswer);
    if (m_printed.value(pair.id) == block)
        return;
    m_printed.insert(pair.id, block);
    ConsoleText::write(m_out, block);
}

void HeadlessRunner::printBanner()
{
    const QString banner = m_controller.banner();
    if (banner.isEmpty() || banner == m_lastBanner)
        return;
    m_lastBanner = banner;
    writeError(banner + QLatin1Char('\n'));
    // There is no Settings window to open here: say where a key goes.
    if (banner == SessionController::apiKeyMissingBanner())
        writeError(tr("  Put it on one line in %1 (the key file Settings writes), or set %2.\n")
                       .arg(SecretStore().filePath(), QString::fromLatin1(SecretStore::environmentVariable)));
}

void HeadlessRunner::printLinks()
{
    QString text;
    for (const SessionController::BannerLink &link : m_controller.bannerLinks())
        text += QStringLiteral("  %1: %2\n").arg(link.label, link.url.toLocalFile());
    writeError(text);
}

void HeadlessRunner::writeError(const QString &text)
{
    if (text.isEmpty())
        return;
    ConsoleText::write(m_err, text);
}

void HeadlessRunner::sessionActiveChanged()
{
    if (m_controller.isSessionActive()) {
        m_started = true;
        if (m_stopAfterSeconds)
            QTimer::singleShot(qRound64(*m_stopAfterSeconds * 1000.0), this, &HeadlessRunner::requestStop);
        return;
    }
    // The session ended without being asked to (the realtime service failed for good).
    if (!m_stopping) {
        printBanner();
        finish(1);
    }
}

void HeadlessRunner::finish(int exitCode)
{
    if (m_finished)
        return;
    m_finished = true;
    emit finished(exitCode);
}
