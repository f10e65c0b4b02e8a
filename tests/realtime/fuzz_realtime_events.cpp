// libFuzzer target for the realtime client's handling of service frames. Each input is split
// at newlines into frames and fed to one connection that has a configuration but no socket,
// so every branch (configuration, seeding, deltas, errors and fall-backs) runs without network.
// Built only with -DKETTERBLOOM_FUZZ=ON and clang; see tests/realtime/CMakeLists.txt.

#include "realtime/RealtimeConnection.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>

namespace {

RealtimeConnection &connection()
{
    static int argc = 1;
    static char name[] = "fuzz_realtime_events";
    static char *argv[] = {name, nullptr};
    static QCoreApplication app(argc, argv);
    static RealtimeConnection *instance = [] {
        // An address the client refuses, so start() keeps the configuration but opens nothing.
        qputenv("KQ_REALTIME_URL", "fuzz://nowhere");
        QLoggingCategory::setFilterRules(QStringLiteral("ketterbloom.realtime.info=false"));
        auto *c = new RealtimeConnection(RealtimeTiming{});
        QObject::connect(&c->events(), &RealtimeEvents::answerDelta, [](const QString &, const QString &) {});
        QObject::connect(&c->events(), &RealtimeEvents::usageReported, [](const QVariantMap &usage) { (void)usage.size(); });
        c->updateHistory({{QStringLiteral("Earlier question?"), QStringLiteral("Earlier answer.")}});
        return c;
    }();
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    RealtimeConnection &c = connection();
    RealtimeConfig config;
    config.apiKey = QStringLiteral("sk-fuzz");
    config.model = QStringLiteral("m");
    c.start(config);
    const QByteArray input(reinterpret_cast<const char *>(data), qsizetype(size));
    for (const QByteArray &frame : input.split('\n')) {
        c.handleText(QString::fromUtf8(frame));
        c.append(frame);
    }
    c.regenerate(QStringLiteral("again?"));
    c.stop();
    return 0;
}
