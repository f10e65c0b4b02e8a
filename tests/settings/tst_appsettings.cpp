#include "settings/AppSettings.h"
#include "settings/InstructionsBuilder.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <tuple>

// Settings against a real ini-format store in a temporary folder; "restart" means a new
// AppSettings over the same file.
class TestAppSettings : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_run = 0;
    QString m_storePath;

    QString storePath() const { return m_storePath; }
    SecretStore secrets() const { return SecretStore(m_dir.filePath(QStringLiteral("data/Ketterbloom")),
                                                     m_dir.filePath(QStringLiteral("data/Tallowmere"))); }
    std::unique_ptr<AppSettings> launch()
    {
        return std::make_unique<AppSettings>(std::make_unique<QSettings>(storePath(), QSettings::NativeFormat),
                                             secrets());
    }
    void store(const QString &key, const QVariant &value)
    {
        QSettings s(storePath(), QSettings::NativeFormat);
        s.setValue(key, value);
    }

private slots:
    void init() { m_storePath = m_dir.filePath(QStringLiteral("run%1.conf").arg(++m_run)); }

    void freshStoreGivesDefaults()
    {
        const auto s = launch();
        const QList<std::pair<const char *, QVariant>> defaults{
            {"apiKey", QString()},
            {"hasCompletedOnboarding", false},
            {"model", QStringLiteral("gpt-realtime-2.1")},
            {"transcribeModel", QStringLiteral("gpt-live-transcribe")},
            {"deviceUID", QString()},
            {"micChannel", 0},
            {"meetingChannel", 1},
            {"saveAudio", false},
            {"alwaysOnTop", true},
            {"vadThreshold", 0.5},
            {"prefixPaddingMs", 300},
            {"silenceDurationMs", 800},
            {"systemPrompt", InstructionsBuilder::defaultSystemPrompt()},
            {"contextText", QString()},
            {"contextFileNames", QStringList()},
            {"reconnectMinutes", 25},
            {"appearance", QVariant::fromValue(AppSettings::Appearance::system)},
            {"followUpWindow", 8.0},
            {"transcribeMyAnswers", false},
            {"meetingSource", QVariant::fromValue(AppSettings::MeetingSource::systemOutput)},
            {"tappedBundleID", QString()},
            {"streamSource", QVariant::fromValue(AppSettings::StreamSource::meetingOnly)},
            {"fontSize", 14.0},
            {"fontFamily", QString()},
            {"companyName", QString()},
            {"roleTitle", QString()},
            {"jobDescription", QString()},
        };
        for (const auto &[name, value] : defaults)
            QVERIFY2(s->property(name) == value, name);
        QCOMPARE(s->systemPrompt().size(), 501);
        QCOMPARE(s->interviewers().size(), 2);
        QVERIFY(s->interviewers().at(0).id != s->interviewers().at(1).id);
        QVERIFY(s->interviewers().at(0).isBlank() && s->interviewers().at(1).isBlank());
        // Reading never writes.
        QVERIFY(!QFile::exists(storePath()));
    }

    void everyChangeSurvivesARestart()
    {
        const QList<Interviewer> panel{Interviewer(QUuid::createUuid(), QStringLiteral("Dana"), QStringLiteral("CTO")),
                                       Interviewer(QUuid::createUuid(), QString(), QStringLiteral("HR, people"))};
        // Falsy values, empty strings where the default is not empty, and text the ini
        // format must quote or escape.
        const QList<std::pair<const char *, QVariant>> changes{
            {"hasCompletedOnboarding", true},
            {"model", QStringLiteral("m-model")},
            {"transcribeModel", QStringLiteral("t-model")},
            {"deviceUID", QStringLiteral("alsa_input.usb-1")},
            {"meetingChannel", 0},
            {"saveAudio", true},
            {"alwaysOnTop", false},
            {"vadThreshold", 0.0},
            {"prefixPaddingMs", 0},
            {"silenceDurationMs", 1200},
            {"systemPrompt", QString()},
            {"contextText", QStringLiteral("line one\nline two, with comma; and \"quotes\" @at")},
            {"contextFileNames", QStringList{QStringLiteral("cv, final.pdf")}},
            {"appearance", QVariant::fromValue(AppSettings::Appearance::dark)},
            {"followUpWindow", 2.25},
            {"transcribeMyAnswers", true},
            {"meetingSource", QVariant::fromValue(AppSettings::MeetingSource::audioDevice)},
            {"tappedBundleID", QStringLiteral("org.mozilla.firefox")},
            {"streamSource", QVariant::fromValue(AppSettings::StreamSource::both)},
            {"fontSize", 0.0},
            {"fontFamily", QStringLiteral("__mono")},
            {"companyName", QStringLiteral(" ")},
            {"roleTitle", QStringLiteral("Staff Engineer")},
            {"jobDescription", QStringLiteral("Build things.\n\nShip them.")},
        };
        {
            const auto s = launch();
            for (const auto &[name, value] : changes)
                QVERIFY2(s->setProperty(name, value), name);
            s->setInterviewers(panel);
            s->setReconnectMinutes(10);
        }
        QSettings raw(storePath(), QSettings::NativeFormat);
        QCOMPARE(raw.value(QStringLiteral("reconnectMinutes")).toInt(), 10);
        QCOMPARE(raw.value(QStringLiteral("appearance")).toString(), QStringLiteral("dark"));
        QCOMPARE(raw.value(QStringLiteral("meetingSource")).toString(), QStringLiteral("audioDevice"));
        QCOMPARE(raw.value(QStringLiteral("streamSource")).toString(), QStringLiteral("both"));

        const auto s = launch();
        for (const auto &[name, value] : changes)
            QVERIFY2(s->property(name) == value, name);
        QCOMPARE(s->interviewers(), panel);
        QCOMPARE(s->reconnectMinutes(), 25);

        // Lists of several names and the empty list survive too.
        s->setContextFileNames({QStringLiteral("a.pdf"), QStringLiteral("b.txt")});
        QCOMPARE(launch()->contextFileNames(), (QStringList{QStringLiteral("a.pdf"), QStringLiteral("b.txt")}));
        s->setContextFileNames({});
        QCOMPARE(launch()->contextFileNames(), QStringList());
    }

    // Values stored by hand: wrongly typed ones fall back to the default; false and zero
    // are kept as they are.
    void storedValuesAreReadOrFallBack()
    {
        const QList<std::tuple<const char *, QVariant, QVariant>> cases{
            {"alwaysOnTop", QStringLiteral("yes"), true},
            {"saveAudio", QStringLiteral("1"), false},
            {"meetingChannel", QStringLiteral("abc"), 1},
            {"micChannel", QStringLiteral("2.5"), 0},
            {"vadThreshold", QStringLiteral("high"), 0.5},
            {"fontSize", QStringList{QStringLiteral("1"), QStringLiteral("2")}, 14.0},
            {"model", QStringList{QStringLiteral("x"), QStringLiteral("y")}, QStringLiteral("gpt-realtime-2.1")},
        };
        for (const auto &[name, stored, expected] : cases)
            store(QString::fromLatin1(name), stored);
        store(QStringLiteral("interviewers"), QStringLiteral("not data"));
        const auto s = launch();
        for (const auto &[name, stored, expected] : cases)
            QVERIFY2(s->property(name) == expected, name);
        QCOMPARE(s->interviewers().size(), 2);

        m_storePath = m_dir.filePath(QStringLiteral("run%1-kept.conf").arg(m_run));
        const QList<std::pair<const char *, QVariant>> kept{
            {"alwaysOnTop", false}, {"meetingChannel", 0}, {"followUpWindow", 0.0}, {"prefixPaddingMs", 0}, {"vadThreshold", 0.0}};
        for (const auto &[name, value] : kept)
            store(QString::fromLatin1(name), value);
        const auto k = launch();
        for (const auto &[name, value] : kept)
            QVERIFY2(k->property(name) == value, name);
        QVERIFY(k->loadNotices().isEmpty());
    }

    // The review's answer band: kept across a restart; a wrongly typed or inverted band
    // stored by hand, or given to the setter, leaves the default.
    void answerTargetBand()
    {
        {
            const auto s = launch();
            QCOMPARE(s->answerTargetMinSeconds(), 60);
            QCOMPARE(s->answerTargetMaxSeconds(), 120);
            QSignalSpy changed(s.get(), &AppSettings::answerTargetChanged);
            s->setAnswerTarget(90, 60);
            s->setAnswerTarget(30, 90);
            QCOMPARE(changed.size(), 1);
        }
        QCOMPARE(launch()->answerTargetMinSeconds(), 30);
        QCOMPARE(launch()->answerTargetMaxSeconds(), 90);
        store(QStringLiteral("answerTargetMaxSeconds"), QStringLiteral("ninety"));
        QCOMPARE(launch()->answerTargetMaxSeconds(), 120);
        QCOMPARE(launch()->answerTargetMinSeconds(), 60);   // half a band is no band
        store(QStringLiteral("answerTargetMaxSeconds"), 20);
        QCOMPARE(launch()->answerTargetMinSeconds(), 60);
    }

    // Values the realtime service would refuse (or that would go out as null) are reset to their
    // defaults, on load and on change, and the settings say which one.
    void valuesTheServiceWouldRefuseAreReset_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QVariant>("stored");
        QTest::addColumn<QVariant>("fallback");
        QTest::addColumn<QString>("message");
        const QString threshold = QStringLiteral("Settings: the voice detection threshold (%1) must be a number from 0 to 1; reset to 0.5.");
        QTest::newRow("threshold above 1") << "vadThreshold" << QVariant(1.5) << QVariant(0.5) << threshold.arg("1.5");
        QTest::newRow("threshold below 0") << "vadThreshold" << QVariant(-0.1) << QVariant(0.5) << threshold.arg("-0.1");
        QTest::newRow("threshold not a number") << "vadThreshold" << QVariant(qQNaN()) << QVariant(0.5) << threshold.arg("nan");
        QTest::newRow("threshold infinite") << "vadThreshold" << QVariant(qInf()) << QVariant(0.5) << threshold.arg("inf");
        QTest::newRow("silence too long") << "silenceDurationMs" << QVariant(10001) << QVariant(800)
                                          << "Settings: the silence that ends a question (10001 ms) must be from 0 to 10000 ms; reset to 800 ms.";
        QTest::newRow("silence negative") << "silenceDurationMs" << QVariant(-1) << QVariant(800)
                                          << "Settings: the silence that ends a question (-1 ms) must be from 0 to 10000 ms; reset to 800 ms.";
        QTest::newRow("padding too long") << "prefixPaddingMs" << QVariant(20000) << QVariant(300)
                                          << "Settings: the audio kept before speech (20000 ms) must be from 0 to 10000 ms; reset to 300 ms.";
        QTest::newRow("padding negative") << "prefixPaddingMs" << QVariant(-300) << QVariant(300)
                                          << "Settings: the audio kept before speech (-300 ms) must be from 0 to 10000 ms; reset to 300 ms.";
        QTest::newRow("model blank") << "model" << QVariant(QStringLiteral(" ")) << QVariant(QStringLiteral("gpt-realtime-2.1"))
                                     << "Settings: the realtime model was blank; reset to gpt-realtime-2.1.";
        QTest::newRow("transcription model empty") << "transcribeModel" << QVariant(QString()) << QVariant(QStringLiteral("gpt-live-transcribe"))
                                                   << "Settings: the transcription model was blank; reset to gpt-live-transcribe.";
    }

    void valuesTheServiceWouldRefuseAreReset()
    {
        QFETCH(QString, key);
        QFETCH(QVariant, stored);
        QFETCH(QVariant, fallback);
        QFETCH(QString, message);
        const QByteArray name = key.toLatin1();

        // On load: the default is used and written back, and the notice names the setting.
        store(key, stored);
        {
            const auto s = launch();
            QCOMPARE(s->property(name), fallback);
            QCOMPARE(s->loadNotices(), QStringList{message});
        }
        QVERIFY(launch()->loadNotices().isEmpty());

        // On change: the same.
        const auto s = launch();
        QSignalSpy resets(s.get(), &AppSettings::settingReset);
        const QVariant valid = key.endsWith("Model") ? QVariant(QStringLiteral("some-model"))
                             : key == "vadThreshold"  ? QVariant(0.7)
                                                      : QVariant(1234);
        QVERIFY(s->setProperty(name, valid));
        QCOMPARE(s->property(name), valid);
        QVERIFY(s->setProperty(name, stored));
        QCOMPARE(s->property(name), fallback);
        QCOMPARE(resets.size(), 1);
        QCOMPARE(resets.first().first().toString(), message);
        QCOMPARE(launch()->property(name), fallback);
    }

    void enumsMatchTheirCaseNamesExactly_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<AppSettings::Appearance>("appearance");
        QTest::newRow("dark") << "dark" << AppSettings::Appearance::dark;
        QTest::newRow("light") << "light" << AppSettings::Appearance::light;
        QTest::newRow("capitalised") << "Dark" << AppSettings::Appearance::system;
        QTest::newRow("empty") << "" << AppSettings::Appearance::system;
        QTest::newRow("unknown") << "sepia" << AppSettings::Appearance::system;
    }
    void enumsMatchTheirCaseNamesExactly()
    {
        QFETCH(QString, stored);
        QFETCH(AppSettings::Appearance, appearance);
        store(QStringLiteral("appearance"), stored);
        store(QStringLiteral("meetingSource"), stored == QLatin1String("dark") ? QStringLiteral("singleApp")
                                                                                : QStringLiteral("SingleApp"));
        store(QStringLiteral("streamSource"), stored == QLatin1String("dark") ? QStringLiteral("micOnly")
                                                                               : QStringLiteral("mic"));
        const auto s = launch();
        QCOMPARE(s->appearance(), appearance);
        const bool exact = stored == QLatin1String("dark");
        QCOMPARE(s->meetingSource(), exact ? AppSettings::MeetingSource::singleApp : AppSettings::MeetingSource::systemOutput);
        QCOMPARE(s->streamSource(), exact ? AppSettings::StreamSource::micOnly : AppSettings::StreamSource::meetingOnly);
    }

    void panelMustHoldExactlyTwo_data()
    {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("kept");
        const QByteArray a = R"({"id":"6B1F5A52-1C3E-4F7A-9E51-0F5D2C4A7B10","name":"Dana","title":"CTO"})";
        const QByteArray b = R"({"id":"0A6E8F1B-2D4C-4B3A-8F9E-1C2D3E4F5A6B","name":"","title":"Head of HR"})";
        QTest::newRow("two") << "[" + a + "," + b + "]" << true;
        QTest::newRow("one") << "[" + a + "]" << false;
        QTest::newRow("three") << "[" + a + "," + b + "," + a + "]" << false;
        QTest::newRow("missing id") << QByteArray(R"([{"name":"x","title":"y"},)") + b + "]" << false;
        QTest::newRow("number name") << "[" + b + R"(,{"id":"6B1F5A52-1C3E-4F7A-9E51-0F5D2C4A7B10","name":1,"title":""}])" << false;
        QTest::newRow("not json") << QByteArray("[{") << false;
    }
    void panelMustHoldExactlyTwo()
    {
        QFETCH(QByteArray, json);
        QFETCH(bool, kept);
        store(QStringLiteral("interviewers"), json);
        const auto s = launch();
        QCOMPARE(s->interviewers().size(), 2);
        if (kept) {
            QCOMPARE(s->interviewers().at(0).id, QUuid::fromString(QStringLiteral("6B1F5A52-1C3E-4F7A-9E51-0F5D2C4A7B10")));
            QCOMPARE(s->interviewers().at(0).label(0), QStringLiteral("Dana \u2014 CTO"));
            QCOMPARE(s->interviewers().at(1).label(1), QStringLiteral("Head of HR"));
        } else {
            QVERIFY(s->interviewers().at(0).isBlank() && s->interviewers().at(1).isBlank());
        }
    }

    void panelIsStoredAsJsonWithUpperCaseIds()
    {
        const auto s = launch();
        const QUuid id = QUuid::fromString(QStringLiteral("{6b1f5a52-1c3e-4f7a-9e51-0f5d2c4a7b10}"));
        s->setInterviewers({Interviewer(id, QStringLiteral("Ana \"A\""), QString()), s->interviewers().at(1)});
        QSettings raw(storePath(), QSettings::NativeFormat);
        const QByteArray json = raw.value(QStringLiteral("interviewers")).toByteArray();
        QVERIFY2(json.startsWith(R"([{"id":"6B1F5A52-1C3E-4F7A-9E51-0F5D2C4A7B10","name":"Ana \"A\"","title":""},{"id":")"),
                 json.constData());
    }

    void interviewerLabels()
    {
        const auto person = [](const char *name, const char *title) {
            return Interviewer(QUuid::createUuid(), QString::fromUtf8(name), QString::fromUtf8(title));
        };
        QCOMPARE(person("Dana", "").label(0), QStringLiteral("Dana"));
        QCOMPARE(person("", "Head of Engineering").label(0), QStringLiteral("Head of Engineering"));
        QCOMPARE(person(" \tDana ", "\tCTO  ").label(0), QStringLiteral("Dana \u2014 CTO"));
        QCOMPARE(person("  ", "\t").label(1), QStringLiteral("Interviewer 2"));
        QCOMPARE(person("\n", "").label(0), QStringLiteral("\n")); // line breaks are not trimmed
        const Interviewer a = person("Dana", "CTO");
        Interviewer b = a;
        QCOMPARE(a, b);
        QCOMPARE(qHash(a), qHash(b));
        b.id = QUuid::createUuid();
        QVERIFY(a != b);
    }

    void changesSignalOnceAndInstructionsFollow()
    {
        const auto s = launch();
        QSignalSpy roleSpy(s.get(), &AppSettings::roleTitleChanged);
        QSignalSpy instructionsSpy(s.get(), &AppSettings::instructionsChanged);
        QSignalSpy fontSpy(s.get(), &AppSettings::fontSizeChanged);
        s->setRoleTitle(QStringLiteral("Lead"));
        s->setRoleTitle(QStringLiteral("Lead"));
        s->setFontSize(15.0);
        QCOMPARE(roleSpy.count(), 1);
        QCOMPARE(roleSpy.first().first().toString(), QStringLiteral("Lead"));
        QCOMPARE(instructionsSpy.count(), 1);
        QCOMPARE(fontSpy.count(), 1);
        QVERIFY(s->instructions().contains(QStringLiteral("\n\n=== ROLE UNDER DISCUSSION ===\nRole: Lead\n\n")));
        // Views can bind through the property system.
        QVERIFY(s->setProperty("companyName", QStringLiteral("Acme")));
        QCOMPARE(s->property("companyName").toString(), QStringLiteral("Acme"));
    }

    void contextIsAppendedOrReplaced()
    {
        const auto s = launch();
        s->appendContext(QStringLiteral("----- a.txt -----\nA"), {QStringLiteral("a.txt")});
        s->appendContext(QStringLiteral("----- b.txt -----\nB"), {QStringLiteral("b.txt")});
        s->appendContext(QString(), {QStringLiteral("ignored")});
        QCOMPARE(s->contextText(), QStringLiteral("----- a.txt -----\nA\n\n----- b.txt -----\nB"));
        QCOMPARE(s->contextFileNames(), (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.txt")}));
        s->replaceContext(QStringLiteral("C"), {QStringLiteral("c.md")});
        QCOMPARE(s->contextText(), QStringLiteral("C"));
        QCOMPARE(s->contextFileNames(), QStringList{QStringLiteral("c.md")});
    }

    void apiKeyComesFromTheKeyFileThenTheEnvironment()
    {
        qputenv("OPENAI_API_KEY", " sk-env-untrimmed ");
        QCOMPARE(launch()->apiKey(), QStringLiteral(" sk-env-untrimmed "));
        {
            const auto s = launch();
            s->setApiKey(QStringLiteral("  sk-file\n"));
            QCOMPARE(s->apiKey(), QStringLiteral("  sk-file\n")); // kept as typed in memory
        }
        QCOMPARE(launch()->apiKey(), QStringLiteral("sk-file"));
        launch()->setApiKey(QStringLiteral(" \n"));
        QVERIFY(!QFile::exists(secrets().filePath()));
        QCOMPARE(launch()->apiKey(), QStringLiteral(" sk-env-untrimmed "));
        qunsetenv("OPENAI_API_KEY");
        QCOMPARE(launch()->apiKey(), QString());
        // The key is not a setting of the store.
        QVERIFY(!QSettings(storePath(), QSettings::NativeFormat).contains(QStringLiteral("apiKey")));
    }
};

QTEST_GUILESS_MAIN(TestAppSettings)
#include "tst_appsettings.moc"
