// Accuracy, speed and memory of on-device recognition, the way the microphone path decodes
// (0.1 s blocks with a partial hypothesis after each), on two sets:
//  - the librivox clips of pocketsphinx-testdata, against their reference transcription;
//  - a fixed set of interview answers spoken by espeak-ng.
// For each set, word error rate "cold" (each clip as the first utterance after loading the
// model) and "warm" (every clip after the decoder has heard another utterance), for the
// decoder as it was set up before (untuned) and as it is now, without and with the words of
// a fixed CV and job description.
// KETTERBLOOM_SPEECH_ARGS="-name value …" adds decoder settings to "now", for experiments;
// KETTERBLOOM_CONTEXT_WEIGHT and KETTERBLOOM_CONTEXT_CEILING set how context words are
// favoured; KETTERBLOOM_BENCH_NOW_ONLY=1 runs only the "now" line;
// KETTERBLOOM_BENCH_WARMUP=1 also measures a warm-up with a generated voice after loading.
#include "speech/ContextWords.h"
#include "speech/PocketSphinxEngine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextStream>

#include <sndfile.h>
#include <soxr.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <ctime>
#include <vector>

namespace {

const QString kLibrivox = QStringLiteral("/usr/share/pocketsphinx/test/data/librivox");

const char *const kAnswers[] = {
    "I led a small team that moved our billing system to a new database",
    "the hardest part was keeping the service running while we moved the data",
    "we wrote tests for every step and we could roll back at any time",
    "my manager asked me to plan the work and talk to the other teams",
    "in the end we finished two weeks early and the customers did not notice",
    "I like to work with people who ask questions and share what they learn",
    "my biggest weakness is that I sometimes take on too much work myself",
    "I want to join your company because I care about the product",
};
// The documents of the candidate who gives those answers: a CV and a job description, as a
// user would paste them.
const char *const kDocuments =
    "Jordan Ellis. Senior backend engineer. Seven years building payment and billing "
    "platforms in Python, Go and PostgreSQL. Acme Payments, 2021 to now: led a team of four "
    "that migrated the billing system from Oracle to PostgreSQL without downtime; designed "
    "the data migration, rollback plan and integration tests; planned the work with product, "
    "finance and support teams; cut invoice generation time by sixty percent. Brightline, "
    "2017 to 2021: built customer-facing APIs and the reporting service; mentored new "
    "engineers. Skills: Python, Go, SQL, Kafka, Docker, Kubernetes, Terraform, Linux. "
    "Job description: Staff engineer, Payments Platform, Northwind. You will lead the "
    "database and service migrations of our billing platform, plan work across teams, "
    "keep services running for customers during change, and share what you learn.";

const char *const kVoices[] = {"en-us+f2", "en-us", "en-us+f4", "en-us+m3"};

struct Clip
{
    QString name;
    QString reference;
    std::vector<std::int16_t> pcm; // 16 kHz
};

double cpuSeconds()
{
    timespec ts{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

QString procStatus(const char *key)
{
    QFile f(QStringLiteral("/proc/self/status"));
    if (!f.open(QIODevice::ReadOnly))
        return QStringLiteral("?");
    for (const QByteArray &line : f.readAll().split('\n'))
        if (line.startsWith(key))
            return QString::fromLatin1(line.mid(qstrlen(key))).simplified();
    return QStringLiteral("?");
}

std::vector<std::int16_t> readAt16k(const QString &path)
{
    SF_INFO info{};
    SNDFILE *f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    std::vector<std::int16_t> pcm;
    if (!f)
        return pcm;
    std::vector<float> in(static_cast<std::size_t>(info.frames) * info.channels);
    sf_readf_float(f, in.data(), info.frames);
    sf_close(f);
    std::vector<float> mono(static_cast<std::size_t>(info.frames));
    for (std::size_t i = 0; i < mono.size(); ++i)
        mono[i] = in[i * static_cast<std::size_t>(info.channels)];
    std::vector<float> out(static_cast<std::size_t>(mono.size() * 16000.0 / info.samplerate) + 16);
    std::size_t made = 0;
    soxr_oneshot(info.samplerate, 16000, 1, mono.data(), mono.size(), nullptr, out.data(), out.size(), &made,
                 nullptr, nullptr, nullptr);
    for (std::size_t i = 0; i < made; ++i)
        pcm.push_back(static_cast<std::int16_t>(std::clamp(out[i] * 32768.0f, -32768.0f, 32767.0f)));
    return pcm;
}

QList<Clip> librivoxClips()
{
    QList<Clip> clips;
    QFile transcription(kLibrivox + QStringLiteral("/transcription"));
    if (!transcription.open(QIODevice::ReadOnly))
        return clips;
    // Lines: "<s> words </s> (fileid)"
    const QRegularExpression line(QStringLiteral("^<s>\\s*(.*?)\\s*</s>\\s*\\((.+)\\)\\s*$"));
    for (const QByteArray &raw : transcription.readAll().split('\n')) {
        const auto m = line.match(QString::fromUtf8(raw));
        if (m.hasMatch())
            clips.append({m.captured(2).right(4), m.captured(1), readAt16k(kLibrivox + u'/' + m.captured(2) + QStringLiteral(".wav"))});
    }
    return clips;
}

QList<Clip> espeakClips(const QTemporaryDir &dir)
{
    QList<Clip> clips;
    if (QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty())
        return clips;
    int n = 0;
    for (const char *answer : kAnswers) {
        const QString path = dir.filePath(QStringLiteral("answer%1.wav").arg(n));
        const QString voice = QString::fromLatin1(kVoices[n % std::size(kVoices)]);
        QProcess::execute(QStringLiteral("espeak-ng"), {QStringLiteral("-v"), voice, QStringLiteral("-s"), QStringLiteral("160"),
                                                        QStringLiteral("-w"), path, QString::fromLatin1(answer)});
        clips.append({QStringLiteral("a%1").arg(n), QString::fromLatin1(answer), readAt16k(path)});
        ++n;
    }
    return clips;
}

int editDistance(const QStringList &ref, const QStringList &hyp)
{
    std::vector<int> prev(hyp.size() + 1), cur(hyp.size() + 1);
    for (int j = 0; j <= hyp.size(); ++j)
        prev[j] = j;
    for (int i = 1; i <= ref.size(); ++i) {
        cur[0] = i;
        for (int j = 1; j <= hyp.size(); ++j)
            cur[j] = std::min({prev[j] + 1, cur[j - 1] + 1, prev[j - 1] + (ref[i - 1] == hyp[j - 1] ? 0 : 1)});
        std::swap(prev, cur);
    }
    return prev[hyp.size()];
}

QStringList words(const QString &text)
{
    return text.toLower().split(QRegularExpression(QStringLiteral("\\s+")), Qt::SkipEmptyParts);
}

// As the microphone path decodes: 0.1 s blocks, a partial hypothesis after each; with
// `redecodeCold`, while the engine has heard under 20 s, the final text comes from decoding
// the utterance a second time (as MicDecoderWorker does); KETTERBLOOM_BENCH_REDECODE=whole
// decodes it again as a whole instead, normalised over itself.
QString decodeLive(PocketSphinxEngine &engine, const Clip &clip, bool redecodeCold, double &heard)
{
    const bool cold = heard < 20.0;
    heard += clip.pcm.size() / 16000.0;
    (void)engine.startUtterance();
    for (std::size_t i = 0; i < clip.pcm.size(); i += 1600) {
        (void)engine.process(clip.pcm.data() + i, std::min<std::size_t>(1600, clip.pcm.size() - i));
        engine.partialHypothesis();
    }
    auto r = engine.endUtterance();
    if (redecodeCold && cold && clip.pcm.size() <= 10 * 16000) {
        static const bool again = qEnvironmentVariable("KETTERBLOOM_BENCH_REDECODE") != QLatin1String("whole");
        const std::atomic<bool> never{false};
        auto whole = again ? engine.recognise(clip.pcm.data(), clip.pcm.size(), never)
                           : engine.recogniseWhole(clip.pcm.data(), clip.pcm.size());
        if (whole.ok())
            r = whole;
    }
    return r.valueOr(QString());
}

struct Score
{
    int errors = 0, refWords = 0;
    double audio = 0, cpu = 0;
    void add(const Clip &clip, const QString &hyp, double seconds)
    {
        errors += editDistance(words(clip.reference), words(hyp));
        refWords += words(clip.reference).size();
        audio += clip.pcm.size() / 16000.0;
        cpu += seconds;
    }
    double wer() const { return 100.0 * errors / std::max(1, refWords); }
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    const QTemporaryDir dir;
    const QList<QPair<QString, QList<Clip>>> sets{{QStringLiteral("librivox clips"), librivoxClips()},
                                                  {QStringLiteral("espeak-ng interview answers"), espeakClips(dir)}};
    if (sets[0].second.isEmpty())
        out << "bench_speech: pocketsphinx-testdata is not installed; only the espeak-ng set runs\n";

    PocketSphinxEngine::Options now;
    const QString extra = qEnvironmentVariable("KETTERBLOOM_SPEECH_ARGS");
    now.extraArguments += extra.split(u' ', Qt::SkipEmptyParts);
    const QStringList documentWords = ContextWords::fromText(QString::fromUtf8(kDocuments));
    if (const QString weight = qEnvironmentVariable("KETTERBLOOM_CONTEXT_WEIGHT"); !weight.isEmpty())
        now.contextWeight = weight.toDouble();
    if (const QString ceiling = qEnvironmentVariable("KETTERBLOOM_CONTEXT_CEILING"); !ceiling.isEmpty())
        now.contextCeiling = ceiling.toDouble();
    struct Config
    {
        QString name;
        PocketSphinxEngine::Options options;
        bool redecodeCold;
        bool documents;
    };
    const QList<Config> configs{{QStringLiteral("before"), PocketSphinxEngine::Options::untuned(), false, false},
                                {QStringLiteral("warm-up with a generated voice"), PocketSphinxEngine::Options::warmedUp(), false, false},
                                {QStringLiteral("now, without documents"), now, true, false},
                                {QStringLiteral("now"), now, true, true}};

    const bool verbose = qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_VERBOSE");

    const bool wholeOnly = qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_WHOLE_ONLY");
    const bool nowOnly = qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_NOW_ONLY");
    for (const auto &[configName, options, redecodeCold, documents] : configs) {
        const auto makeEngine = [&, &options = options, documents = documents] {
            auto engine = std::make_unique<PocketSphinxEngine>(QString(), options);
            (void)engine->load();
            if (documents)
                engine->setContextWords(documentWords);
            return engine;
        };
        if (options.warmUp && !qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_WARMUP"))
            continue; // measured once; see the README
        if ((wholeOnly && !configName.startsWith(QLatin1String("now"))) || (nowOnly && configName != QLatin1String("now")))
            continue;
        out << "\n== " << configName << (extra.isEmpty() || !configName.startsWith(QLatin1String("now")) ? QString() : QStringLiteral(" + ") + extra) << " ==\n";
        {
            PocketSphinxEngine engine(QString(), options);
            QElapsedTimer wall;
            wall.start();
            const double cpu0 = cpuSeconds();
            if (auto loaded = engine.load(); !loaded.ok()) {
                out << "bench_speech: " << loaded.error().description << "\n";
                return 1;
            }
            out << QStringLiteral("model load: %1 ms wall, %2 s CPU, resident %3\n")
                       .arg(wall.elapsed()).arg(cpuSeconds() - cpu0, 0, 'f', 2).arg(procStatus("VmRSS:"));
        }
        for (int s = 0; s < sets.size(); ++s) {
            const QList<Clip> &clips = sets[s].second;
            if (clips.isEmpty())
                continue;
            // Cold: a fresh decoder for each clip.
            Score cold;
            for (const Clip &clip : wholeOnly ? QList<Clip>() : clips) {
                const auto engine = makeEngine();
                const double start = cpuSeconds();
                double heard = 0;
                const QString hyp = decodeLive(*engine, clip, redecodeCold, heard);
                cold.add(clip, hyp, cpuSeconds() - start);
                if (verbose)
                    out << "  cold " << clip.name << ": " << hyp << "\n";
            }
            // Warm: one decoder that first hears an utterance of the other set.
            Score warm;
            const auto engine = makeEngine();
            const QList<Clip> &other = sets[1 - s].second.isEmpty() ? clips : sets[1 - s].second;
            double heard = 0;
            if (!wholeOnly)
                decodeLive(*engine, other.last(), redecodeCold, heard);
            for (const Clip &clip : wholeOnly ? QList<Clip>() : clips) {
                const double start = cpuSeconds();
                const QString hyp = decodeLive(*engine, clip, redecodeCold, heard);
                warm.add(clip, hyp, cpuSeconds() - start);
                if (verbose)
                    out << "  warm " << clip.name << ": " << hyp << "\n";
            }
            out << QStringLiteral("%1 (%2 clips, %3 s): WER cold %4%, warm %5%; real-time factor %6\n")
                       .arg(sets[s].first).arg(clips.size()).arg(warm.audio, 0, 'f', 1)
                       .arg(cold.wer(), 0, 'f', 1).arg(warm.wer(), 0, 'f', 1).arg(warm.cpu / warm.audio, 0, 'f', 2);
            if (wholeOnly || qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_WHOLE")) {
                Score whole;
                const auto fresh = makeEngine();
                for (const Clip &clip : clips) {
                    const double start = cpuSeconds();
                    const QString text = fresh->recogniseWhole(clip.pcm.data(), clip.pcm.size()).valueOr(QString());
                    whole.add(clip, text, cpuSeconds() - start);
                    if (verbose)
                        out << "  whole " << clip.name << ": " << text << "\n";
                }
                out << QStringLiteral("  each utterance decoded whole (cold = warm): WER %1%\n").arg(whole.wer(), 0, 'f', 1);
            }
        }
    }
    out << QStringLiteral("\npeak memory (VmHWM): %1\n").arg(procStatus("VmHWM:"));
    return 0;
}
