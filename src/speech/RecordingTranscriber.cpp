#include "speech/RecordingTranscriber.h"

#include "speech/EngineRecogniser.h"
#include "speech/PocketSphinxEngine.h"

#include <QEventLoop>
#include <QFile>
#include <QTimer>

#include <sndfile.h>

RecordingTranscriber::RecordingTranscriber(std::shared_ptr<SpeechEngine> engine, const QLocale &locale, QObject *parent)
    : QObject(parent)
    , m_engine(std::move(engine))
    , m_locale(locale)
    , m_context(new QObject)
{
    m_context->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_context, &QObject::deleteLater);
    m_thread.setObjectName(QStringLiteral("kb-rec-speech"));
    m_thread.start();
}

RecordingTranscriber::~RecordingTranscriber()
{
    cancel();
    // What the worker holds (network requests among it) is dropped on the worker thread.
    QMetaObject::invokeMethod(m_context, [this] {
        m_current.reset();
        m_waiting.clear();
    }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

QString RecordingTranscriber::cancelledMessage()
{
    return RecordingJob::cancelledMessage();
}

std::optional<double> RecordingTranscriber::recordingSeconds(const QString &wavPath)
{
    SF_INFO info{};
    SNDFILE *file = sf_open(QFile::encodeName(wavPath).constData(), SFM_READ, &info);
    if (!file)
        return std::nullopt;
    sf_close(file);
    if (info.samplerate < 1 || info.channels < 1)
        return std::nullopt;
    return static_cast<double>(info.frames) / info.samplerate;
}

RecordingTranscriber::Result RecordingTranscriber::transcribeFile(const QString &wavPath, const ProgressHandler &progress,
                                                                  const std::atomic<bool> *cancelled)
{
    PocketSphinxEngine engine;
    const std::atomic<bool> never{false};
    return run(wavPath, engine, QLocale::system(), progress, cancelled ? *cancelled : never);
}

RecordingTranscriber::Result RecordingTranscriber::run(const QString &wavPath, SpeechEngine &engine, const QLocale &locale,
                                                       const ProgressHandler &progress, const std::atomic<bool> &cancelled)
{
    EngineRecogniser recogniser(engine, locale, cancelled);
    return run(wavPath, recogniser, progress, cancelled);
}

RecordingTranscriber::Result RecordingTranscriber::run(const QString &wavPath, UtteranceRecogniser &recogniser,
                                                       const ProgressHandler &progress, const std::atomic<bool> &cancelled)
{
    std::optional<Result> result;
    QEventLoop *waiting = nullptr;
    RecordingJob job(wavPath, recogniser, progress, [&](const Result &r) {
        result = r;
        if (waiting)
            waiting->quit();
    }, cancelled);
    job.start();
    if (!result) {
        // An asynchronous recogniser: its answers come through this thread's events.
        QEventLoop loop;
        QTimer watch;
        QObject::connect(&watch, &QTimer::timeout, &loop, [&] {
            if (cancelled.load(std::memory_order_acquire))
                job.cancel();
        });
        watch.start(100);
        waiting = &loop;
        if (!result)
            loop.exec();
        waiting = nullptr;
    }
    return *result;
}

void RecordingTranscriber::transcribe(const QString &wavPath, ProgressHandler progress,
                                      std::function<void(const Result &)> completion)
{
    transcribe(wavPath, RecogniserFactory(), std::move(progress), std::move(completion));
}

void RecordingTranscriber::transcribe(const QString &wavPath, RecogniserFactory makeRecogniser, ProgressHandler progress,
                                      std::function<void(const Result &)> completion)
{
    auto task = std::make_unique<Task>();
    task->wavPath = wavPath;
    task->makeRecogniser = std::move(makeRecogniser);
    task->cancelled = std::make_shared<std::atomic<bool>>(false);
    m_jobs.push_back(task->cancelled);
    // The task's handlers reach back to this object only through queued calls with it as the
    // context; the destructor stops the worker thread before this object goes away.
    task->progress = [this, progress = std::move(progress)](const RecordingProgress &p) {
        QMetaObject::invokeMethod(this, [progress, p] {
            if (progress)
                progress(p);
        }, Qt::QueuedConnection);
    };
    task->completion = [this, cancelled = task->cancelled, completion = std::move(completion)](const Result &result) {
        QMetaObject::invokeMethod(this, [this, cancelled, completion, result] {
            std::erase(m_jobs, cancelled);
            if (completion)
                completion(result);
        }, Qt::QueuedConnection);
    };
    enqueue(std::move(task));
}

void RecordingTranscriber::enqueue(std::unique_ptr<Task> task)
{
    // std::function needs a copyable callable: the task travels in a shared pointer.
    auto shared = std::make_shared<std::unique_ptr<Task>>(std::move(task));
    QMetaObject::invokeMethod(m_context, [this, shared] {
        m_waiting.push_back(std::move(*shared));
        if (!m_current)
            startNext();
    }, Qt::QueuedConnection);
}

void RecordingTranscriber::startNext()
{
    while (!m_current && !m_waiting.empty()) {
        m_current = std::move(m_waiting.front());
        m_waiting.pop_front();
        Task &task = *m_current;
        if (task.makeRecogniser) {
            task.recogniser = task.makeRecogniser();
        } else {
            SpeechEngine *engine = m_engine.get();
            if (!engine) {
                task.ownEngine = std::make_unique<PocketSphinxEngine>();
                engine = task.ownEngine.get();
            }
            task.recogniser = std::make_unique<EngineRecogniser>(*engine, m_locale, *task.cancelled);
        }
        task.job = std::make_unique<RecordingJob>(task.wavPath, *task.recogniser, task.progress,
                                                  [this, &task](const Result &result) { taskFinished(task, result); },
                                                  *task.cancelled);
        // An on-device job runs to its end in here; one with a service returns at once.
        task.job->start();
    }
}

void RecordingTranscriber::taskFinished(Task &task, const Result &result)
{
    task.completion(result);
    // The job is still on the stack: it goes, and the next one starts, after it returns.
    QMetaObject::invokeMethod(m_context, [this] {
        m_current.reset();
        startNext();
    }, Qt::QueuedConnection);
}

void RecordingTranscriber::cancel()
{
    for (const auto &flag : m_jobs)
        flag->store(true, std::memory_order_release);
    // A job waiting for answers is stopped where it waits.
    QMetaObject::invokeMethod(m_context, [this] {
        if (m_current && m_current->job)
            m_current->job->cancel();
    }, Qt::QueuedConnection);
}
