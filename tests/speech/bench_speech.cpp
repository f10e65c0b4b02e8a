// Speed, memory and accuracy of on-device recognition on the librivox clips of
// pocketsphinx-testdata: real-time factor (CPU seconds per audio second), peak resident
// memory, and word error rate against the clips' reference transcription.
#include "speech/PocketSphinxEngine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTextStream>

#include <sndfile.h>

#include <cstdio>
#include <ctime>
#include <vector>

namespace {

const QString kDir = QStringLiteral("/usr/share/pocketsphinx/test/data/librivox");

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

std::vector<std::int16_t> readClip(const QString &path)
{
    SF_INFO info{};
    SNDFILE *f = sf_open(QFile::encodeName(path).constData(), SFM_READ, &info);
    std::vector<std::int16_t> pcm;
    if (!f)
        return pcm;
    pcm.resize(static_cast<std::size_t>(info.frames));
    sf_readf_short(f, pcm.data(), info.frames);
    sf_close(f);
    return pcm;
}

// Word-level edit distance.
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

struct Totals
{
    double audio = 0, cpu = 0;
    int errors = 0, refWords = 0;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QTextStream out(stdout);
    QFile transcription(kDir + QStringLiteral("/transcription"));
    if (!transcription.open(QIODevice::ReadOnly)) {
        out << "bench_speech: pocketsphinx-testdata is not installed\n";
        return 0;
    }
    // Lines: "<s> words </s> (fileid)"
    QList<QPair<QString, QString>> clips;
    const QRegularExpression line(QStringLiteral("^<s>\\s*(.*?)\\s*</s>\\s*\\((.+)\\)\\s*$"));
    for (const QByteArray &raw : transcription.readAll().split('\n')) {
        const auto m = line.match(QString::fromUtf8(raw));
        if (m.hasMatch())
            clips.append({m.captured(2), m.captured(1)});
    }

    PocketSphinxEngine engine;
    const std::atomic<bool> never{false};
    QElapsedTimer wall;
    wall.start();
    const double cpu0 = cpuSeconds();
    if (auto error = engine.load()) {
        out << "bench_speech: " << error->description << "\n";
        return 1;
    }
    out << QStringLiteral("model load: %1 ms wall, %2 s CPU, resident %3\n")
               .arg(wall.elapsed()).arg(cpuSeconds() - cpu0, 0, 'f', 2).arg(procStatus("VmRSS:"));

    // Live: 0.1 s blocks with a partial hypothesis after each, as the microphone path does.
    // Whole: each clip decoded at once, as the recording path does.
    for (const bool live : {true, false}) {
        Totals t;
        out << (live ? "\nlive (streamed, partials each 0.1 s):\n" : "\nwhole utterance:\n");
        for (const auto &[id, reference] : clips) {
            const auto pcm = readClip(kDir + u'/' + id + QStringLiteral(".wav"));
            const double start = cpuSeconds();
            QString hyp;
            if (live) {
                engine.startUtterance();
                for (std::size_t i = 0; i < pcm.size(); i += 1600) {
                    engine.process(pcm.data() + i, std::min<std::size_t>(1600, pcm.size() - i));
                    engine.partialHypothesis();
                }
                auto r = engine.endUtterance();
                if (auto *s = std::get_if<QString>(&r))
                    hyp = *s;
            } else {
                auto r = engine.recognise(pcm.data(), pcm.size(), never);
                if (auto *s = std::get_if<QString>(&r))
                    hyp = *s;
            }
            const double cpu = cpuSeconds() - start;
            const double seconds = pcm.size() / 16000.0;
            const int errors = editDistance(words(reference), words(hyp));
            t.audio += seconds;
            t.cpu += cpu;
            t.errors += errors;
            t.refWords += words(reference).size();
            out << QStringLiteral("  %1  %2 s audio, RTF %3, %4/%5 word errors: %6\n")
                       .arg(id.right(4)).arg(seconds, 0, 'f', 2).arg(cpu / seconds, 0, 'f', 2)
                       .arg(errors).arg(words(reference).size()).arg(hyp);
        }
        out << QStringLiteral("  total: %1 s audio, real-time factor %2 (CPU s per audio s), WER %3%\n")
                   .arg(t.audio, 0, 'f', 1).arg(t.cpu / t.audio, 0, 'f', 2)
                   .arg(100.0 * t.errors / std::max(1, t.refWords), 0, 'f', 1);
    }
    out << QStringLiteral("\npeak memory (VmHWM): %1\n").arg(procStatus("VmHWM:"));
    return 0;
}
