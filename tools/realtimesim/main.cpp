// ketterbloom-sim: a local stand-in for the realtime model service, for trying the app
// without a key and for end-to-end tests. See tools/README.md.

#include "realtimesim/RealtimeSimulator.h"
#include "realtimesim/SimControl.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("ketterbloom-sim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Local realtime service simulator for Ketterbloom."));
    parser.addHelpOption();
    const QCommandLineOption port({"p", "port"}, "Port on 127.0.0.1 (default: a free one).", "port", "0");
    const QCommandLineOption script({"s", "script"}, "JSON script of questions, answers and faults.", "file");
    const QCommandLineOption key({"k", "key"}, "Accept only this API key (default: any non-empty key).", "key");
    const QCommandLineOption rejectCurrent("reject-current-shape",
                                           "Answer the current session shape with an \"Unknown parameter\" error.");
    const QCommandLineOption rejectOutputText("reject-output-text",
                                              "Refuse assistant items whose content type is \"output_text\".");
    const QCommandLineOption realistic("realistic",
                                       "Behave as the service does: answers start before the transcript, "
                                       "a bad key closes with 3000, the legacy shape only with the beta header ...");
    const QCommandLineOption withhold("withhold-session-created",
                                      "Never send \"session.created\" on the first <n> connections (-1: all).", "n");
    const QCommandLineOption quota("insufficient-quota",
                                   "Answer every connection's configuration with an \"insufficient_quota\" error.");
    const QCommandLineOption records({"r", "records"}, "Append every received message as a JSON line to this file.", "file");
    const QCommandLineOption echo("echo-records", "Also print every received message on standard output.");
    parser.addOptions({port, script, key, rejectCurrent, rejectOutputText, realistic, withhold, quota, records, echo});
    parser.process(app);

    QTextStream err(stderr);
    RealtimeSimulator simulator;
    if (parser.isSet(script)) {
        QString error;
        const auto loaded = SimScript::load(parser.value(script), &error);
        if (!loaded) {
            err << "ketterbloom-sim: " << error << Qt::endl;
            return 2;
        }
        simulator.setScript(*loaded);
    }
    if (parser.isSet(key))
        simulator.setExpectedKey(parser.value(key));
    if (parser.isSet(rejectCurrent))
        simulator.setRejectCurrentShape(true);
    if (parser.isSet(rejectOutputText))
        simulator.setRejectOutputText(true);
    if (parser.isSet(realistic))
        simulator.setRealistic(true);
    if (parser.isSet(quota))
        simulator.setInsufficientQuotaAfterConfiguration(true);
    if (parser.isSet(withhold)) {
        bool valid = false;
        const int count = parser.value(withhold).toInt(&valid);
        if (!valid || count < -1) {
            err << "ketterbloom-sim: --withhold-session-created needs a whole number, -1 or more" << Qt::endl;
            return 2;
        }
        simulator.setWithholdSessionCreated(count);
    }

    bool validPort = false;
    const uint requested = parser.value(port).toUInt(&validPort);
    if (!validPort || requested > 65535 || !simulator.listen(quint16(requested))) {
        err << "ketterbloom-sim: cannot listen on 127.0.0.1:" << parser.value(port) << Qt::endl;
        return 1;
    }

    SimControl control(&simulator);
    control.setEcho(parser.isSet(echo));
    if (parser.isSet(records) && !control.setRecordsFile(parser.value(records))) {
        err << "ketterbloom-sim: cannot write " << parser.value(records) << Qt::endl;
        return 1;
    }
    control.listenOnStdin();

    QTextStream out(stdout);
    out << "KQ_REALTIME_URL=" << simulator.url().toString() << Qt::endl;
    return app.exec();
}
