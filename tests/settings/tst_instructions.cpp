#include "settings/AppSettings.h"
#include "settings/InstructionsBuilder.h"

#include <QSignalSpy>
#include <QTemporaryDir>

#include <QTest>

// The expected texts are written out byte for byte, on purpose (not taken from the builder).
namespace {

// The sections several texts share, each spelled out once.
const QString earlier = QStringLiteral(R"EOT(=== EARLIER IN THIS MEETING ===
The questions already asked and the answers already given are in the
conversation history. Treat them as established: stay consistent with the
facts, figures and examples you have already used, do not repeat an answer
or an anecdote you have already given, and build on what has been said
rather than restarting. If a later question revisits earlier ground, add
what is new instead of restating it.)EOT");

const QString tailorToRole = QStringLiteral(R"EOT(Tailor every answer to this role: use the company's own vocabulary, and when a
question maps to a requirement above, connect it to concrete evidence from the
context documents. Never claim a requirement the context does not support.
)EOT");

const QString pitchToEachPerson = QStringLiteral(R"EOT(Read each person's seniority and discipline from their job title and pitch
accordingly, without being told which bucket they fall into:
- Executive / director / head-of titles: give the outcome, the commercial impact
  and the risk position in three or four sentences. No methodology tour, no tool
  names, no jargon unless they use it first.
- Manager / delivery / programme titles: give the delivery mechanics — programme,
  dependencies, stakeholders, how slippage was recovered — with moderate technical
  depth and named artefacts and cadences.
- Engineering / technical / specialist titles: give precise technical substance —
  the actual systems, standards, failure modes and trade-offs. Assume fluency and
  skip the framing.
- HR / talent / people titles: motivation, behaviour and fit in plain language,
  STAR shape, no acronyms.
- Client / stakeholder titles: confidence about outcomes and communication,
  benefits framed in their terms, no internal jargon.

Work out which of them a question came from and answer at their level:
scope, cost, risk and outcome questions come from the senior/commercial
side; questions about systems, standards or how something was actually
built come from the technical side. Keep answers shortest for the most
senior person.
)EOT");

const QString defaultInstructions = QStringLiteral(R"EOT(You are a live meeting assistant listening to a conversation in real time.
When a question is asked, answer it immediately, concisely and factually.
Ground every answer in the CONTEXT below when it is relevant; never invent
experience or facts that are not in the context. Prefer 2-5 short sentences
or a tight bullet list. Do not greet, do not narrate, do not restate the
question. If the audio is small talk rather than a question, reply with a
single short line of useful context or nothing at all.

)EOT")
    + earlier;

const QString onlyRoleNoPrompt = QStringLiteral(R"EOT(

=== ROLE UNDER DISCUSSION ===
Role: Staff Engineer

)EOT")
    + tailorToRole
    + QStringLiteral(R"EOT(
)EOT")
    + earlier;

const QString roleOnePersonContext = QStringLiteral(R"EOT(Be brief.

=== ROLE UNDER DISCUSSION ===
Company:  
Job description:
Own the platform.
  Lead the team.

)EOT")
    + tailorToRole
    + QStringLiteral(R"EOT(
=== WHO IS INTERVIEWING ===
- Dana

)EOT")
    + pitchToEachPerson
    + QStringLiteral(R"EOT(

=== CONTEXT DOCUMENTS (about the user) ===
----- cv.txt -----
Ten years of Rust.

)EOT")
    + earlier;

const QString twoPeople = QStringLiteral(R"EOT(P

=== WHO IS INTERVIEWING ===
- Ana Ruiz — VP Engineering
- Principal Engineer

)EOT")
    + pitchToEachPerson
    + QStringLiteral(R"EOT(When a question spans both, lead with the outcome in one or two plain sentences, then add a single layer of technical specifics for the more technical person — one answer, not two.

)EOT")
    + earlier;

Interviewer person(const char *name, const char *title)
{
    return Interviewer(QUuid::createUuid(), QString::fromUtf8(name), QString::fromUtf8(title));
}

} // namespace

class TestInstructions : public QObject
{
    Q_OBJECT

private slots:
    void defaultPromptAndNothingElse()
    {
        InstructionsBuilder::Inputs in;
        in.systemPrompt = InstructionsBuilder::defaultSystemPrompt();
        in.interviewers = {Interviewer(), Interviewer()};
        QCOMPARE(in.systemPrompt.size(), 501);
        QCOMPARE(InstructionsBuilder::build(in), defaultInstructions);
    }

    void onlyRoleWithAnEmptyPrompt()
    {
        InstructionsBuilder::Inputs in;
        in.roleTitle = QStringLiteral("Staff Engineer");
        in.interviewers = {person(" ", "\t"), Interviewer()};
        QCOMPARE(InstructionsBuilder::build(in), onlyRoleNoPrompt);
    }

    void untrimmedRoleOnePersonAndContext()
    {
        InstructionsBuilder::Inputs in;
        in.systemPrompt = QStringLiteral("Be brief.");
        in.companyName = QStringLiteral(" ");
        in.jobDescription = QStringLiteral("Own the platform.\n  Lead the team.");
        in.interviewers = {person("  ", " \t "), person("\tDana ", "")};
        in.contextText = QStringLiteral("----- cv.txt -----\nTen years of Rust.");
        QCOMPARE(InstructionsBuilder::build(in), roleOnePersonContext);
    }

    void twoPeopleAddTheSpanningLine()
    {
        InstructionsBuilder::Inputs in;
        in.systemPrompt = QStringLiteral("P");
        in.interviewers = {person("Ana Ruiz", " VP Engineering"), person("", "Principal Engineer")};
        const QString text = InstructionsBuilder::build(in);
        QCOMPARE(text, twoPeople);
        // The guidance paragraph is 976 bytes of UTF-8.
        const QByteArray utf8 = text.toUtf8();
        const qsizetype from = utf8.indexOf("Read each person");
        const qsizetype to = utf8.indexOf("internal jargon.") + qsizetype(sizeof("internal jargon.") - 1);
        QCOMPARE(to - from, 976);
    }

    // With every answer-style setting at its default, a fresh settings store gives exactly the
    // text the program has always sent.
    void answerStyleDefaultsChangeNothing()
    {
        QTemporaryDir dir;
        AppSettings settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("s.conf")), QSettings::IniFormat),
                             SecretStore(dir.filePath(QStringLiteral("k")), dir.filePath(QStringLiteral("l"))));
        QCOMPARE(settings.answerLength(), AnswerStyle::Length::standard);
        QCOMPARE(settings.answerStructure(), AnswerStyle::Structure::automatic);
        QCOMPARE(settings.answerLanguage(), QString());
        QCOMPARE(settings.transcriptionLanguage(), QString());
        QCOMPARE(settings.instructions().toUtf8(), defaultInstructions.toUtf8());
        // A blank language name is no language.
        settings.setAnswerLanguage(QStringLiteral("  "));
        QCOMPARE(settings.instructions().toUtf8(), defaultInstructions.toUtf8());
    }

    void eachStyleSettingAddsOneSentence_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("structure");
        QTest::addColumn<QString>("language");
        QTest::addColumn<QString>("added");
        QTest::newRow("brief") << int(AnswerStyle::Length::brief) << 0 << QString()
                               << "Keep every answer brief: two or three sentences that can be said aloud as they stand.";
        QTest::newRow("detailed") << int(AnswerStyle::Length::detailed) << 0 << QString()
                                  << "Give detailed answers: up to two short paragraphs.";
        QTest::newRow("star") << 0 << int(AnswerStyle::Structure::star) << QString()
                              << "Answer behavioural questions (about how you acted in a past situation) in STAR form: "
                                 "Situation, Task, Action, Result.";
        QTest::newRow("language") << 0 << 0 << QStringLiteral(" German ")
                                  << "Always answer in German, whatever language the question is asked in.";
        QTest::newRow("all three, in order")
            << int(AnswerStyle::Length::brief) << int(AnswerStyle::Structure::star) << QStringLiteral("Français")
            << QString::fromUtf8("Keep every answer brief: two or three sentences that can be said aloud as they stand.\n"
                                 "Answer behavioural questions (about how you acted in a past situation) in STAR form: "
                                 "Situation, Task, Action, Result.\n"
                                 "Always answer in Français, whatever language the question is asked in.");
    }

    void eachStyleSettingAddsOneSentence()
    {
        QFETCH(int, length);
        QFETCH(int, structure);
        QFETCH(QString, language);
        QFETCH(QString, added);
        InstructionsBuilder::Inputs in;
        in.systemPrompt = InstructionsBuilder::defaultSystemPrompt();
        in.interviewers = {Interviewer(), Interviewer()};
        in.style = {AnswerStyle::Length(length), AnswerStyle::Structure(structure), language};
        // The style comes last, after a blank line; everything before it is untouched.
        QCOMPARE(InstructionsBuilder::build(in), defaultInstructions + "\n\n" + added);
    }

    // The keys, their raw values, bad stored values, and which changes reach the instructions.
    void answerSettingsPersistAndNotify()
    {
        QTemporaryDir dir;
        const QString path = dir.filePath(QStringLiteral("s.conf"));
        const SecretStore keys(dir.filePath(QStringLiteral("k")), dir.filePath(QStringLiteral("l")));
        {
            AppSettings settings(std::make_unique<QSettings>(path, QSettings::IniFormat), keys);
            QSignalSpy instructions(&settings, &AppSettings::instructionsChanged);
            settings.setAnswerLength(AnswerStyle::Length::detailed);
            settings.setAnswerStructure(AnswerStyle::Structure::star);
            settings.setAnswerLanguage(QStringLiteral("German"));
            QCOMPARE(instructions.size(), 3);
            settings.setAnswerLanguage(QStringLiteral("German "));   // same sentence
            settings.setTranscriptionLanguage(QStringLiteral("de")); // not part of the instructions
            settings.setScreenPrivacyNoteShown(true);
            QCOMPARE(instructions.size(), 3);
            QVERIFY(settings.instructions().endsWith(
                QStringLiteral("Always answer in German, whatever language the question is asked in.")));
        }
        {
            QSettings raw(path, QSettings::IniFormat);
            QCOMPARE(raw.value("answerLength").toString(), QStringLiteral("detailed"));
            QCOMPARE(raw.value("answerStructure").toString(), QStringLiteral("star"));
            QCOMPARE(raw.value("answerLanguage").toString(), QStringLiteral("German "));
            QCOMPARE(raw.value("transcriptionLanguage").toString(), QStringLiteral("de"));
        }
        AppSettings again(std::make_unique<QSettings>(path, QSettings::IniFormat), keys);
        QCOMPARE(again.answerLength(), AnswerStyle::Length::detailed);
        QCOMPARE(again.answerStructure(), AnswerStyle::Structure::star);
        QCOMPARE(again.transcriptionLanguage(), QStringLiteral("de"));
        QVERIFY(again.screenPrivacyNoteShown());
        {
            QSettings raw(path, QSettings::IniFormat);
            raw.setValue("answerLength", "Brief");
            raw.setValue("answerStructure", "STAR");
        }
        AppSettings wrongCase(std::make_unique<QSettings>(path, QSettings::IniFormat), keys);
        QCOMPARE(wrongCase.answerLength(), AnswerStyle::Length::standard);
        QCOMPARE(wrongCase.answerStructure(), AnswerStyle::Structure::automatic);
    }

    void transcriptionLanguageCodes()
    {
        QCOMPARE(AnswerStyle::languageCode(QStringLiteral(" DE ")), QStringLiteral("de"));
        QCOMPARE(AnswerStyle::languageCode(QStringLiteral("pt")), QStringLiteral("pt"));
        for (const char *bad : {"", "deu", "German", "d", "e1", "pt-BR"})
            QCOMPARE(AnswerStyle::languageCode(QString::fromUtf8(bad)), QString());
    }
};

QTEST_GUILESS_MAIN(TestInstructions)
#include "tst_instructions.moc"
