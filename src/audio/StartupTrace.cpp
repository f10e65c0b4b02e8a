#include "audio/StartupTrace.h"

#include "audio/AudioLogging.h"

#include <QDateTime>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QStandardPaths>
#include <QThread>

#include <atomic>
#include <mutex>

namespace {

struct TraceState
{
    TraceState()
    {
        thread.setObjectName(QStringLiteral("kb-trace"));
        context.moveToThread(&thread);
        thread.start();
        monotonic.start();
    }
    ~TraceState()
    {
        QMetaObject::invokeMethod(&context, [] {}, Qt::BlockingQueuedConnection);
        thread.quit();
        thread.wait();
    }

    qint64 nowMs()
    {
        std::lock_guard guard(clockLock);
        return clock ? clock() : monotonic.elapsed();
    }

    QThread thread;
    QObject context;
    QElapsedTimer monotonic;
    std::mutex clockLock;
    std::function<qint64()> clock;
    std::atomic<qint64> startedAtMs{-1};
};

TraceState &state()
{
    static TraceState s;
    return s;
}

void appendLine(const QString &text)
{
    const QString path = StartupTrace::filePath();
    if (path.isEmpty())
        return;
    const QByteArray line = (QDateTime::currentDateTimeUtc().toString(Qt::ISODate) + QStringLiteral("  ") + text
                             + QLatin1Char('\n')).toUtf8();
    QFile file(path);
    if (file.open(QIODevice::WriteOnly | QIODevice::Append))
        file.write(line);
}

} // namespace

QString StartupTrace::filePath()
{
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    if (documents.isEmpty())
        return {};
    const QString folder = documents + QStringLiteral("/Ketterbloom");
    QDir().mkpath(folder);
    return folder + QStringLiteral("/startup.log");
}

QString StartupTrace::formatStep(double elapsedSeconds, const QString &name, const QString &detail)
{
    QString line = QString::asprintf("%6.2fs  ", elapsedSeconds) + name;
    if (!detail.isEmpty())
        line += QStringLiteral("  (") + detail + QLatin1Char(')');
    return line;
}

void StartupTrace::begin(const QString &title)
{
    auto &s = state();
    s.startedAtMs = s.nowMs();
    write(QStringLiteral("──── ") + title + QStringLiteral(" ────"));
}

void StartupTrace::step(const QString &name, const QString &detail)
{
    auto &s = state();
    const qint64 now = s.nowMs();
    qint64 expected = -1;
    s.startedAtMs.compare_exchange_strong(expected, now);   // first use sets the origin
    const double elapsed = double(now - s.startedAtMs.load()) / 1000.0;
    write(formatStep(elapsed, name, detail));
}

void StartupTrace::write(const QString &text)
{
    qCInfo(lcAudio, "[Ketterbloom] %s", qUtf8Printable(text));
    auto &s = state();
    QMetaObject::invokeMethod(&s.context, [text] { appendLine(text); }, Qt::QueuedConnection);
}

void StartupTrace::flush()
{
    auto &s = state();
    QMetaObject::invokeMethod(&s.context, [] {}, Qt::BlockingQueuedConnection);
}

void StartupTrace::setClockForTesting(std::function<qint64()> nowMs)
{
    auto &s = state();
    std::lock_guard guard(s.clockLock);
    s.clock = std::move(nowMs);
}
