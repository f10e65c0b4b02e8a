#include "settings/ContextLoader.h"

#include "settings/RtfReader.h"
#include "settings/SettingsLogging.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QTextBoundaryFinder>

#include <poppler-qt6.h>

#include <limits>
#include <memory>

namespace {

std::optional<QByteArray> readBytes(const QString &path)
{
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

std::optional<QString> strictUtf8(const QByteArray &bytes)
{
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    return text;
}

// Position just after the first `limit` grapheme clusters, or -1 when the text has no more
// than `limit` of them.
qsizetype cutAfterGraphemes(const QString &text, int limit)
{
    if (text.size() <= limit)
        return -1; // every cluster is at least one code unit
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    qsizetype cut = 0;
    while (finder.toNextBoundary() != -1) {
        ++count;
        if (count == limit)
            cut = finder.position();
        if (count > limit)
            return cut;
    }
    return -1;
}

int graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    int count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

} // namespace

QString ContextLoader::clean(const QString &text, int limit)
{
    static const QRegularExpression blanks(QStringLiteral("[ \\t]+"));
    static const QRegularExpression manyBreaks(QStringLiteral("\\n{3,}"));
    QString out = text;
    out.replace(QLatin1String("\r\n"), QLatin1String("\n"));
    out.replace(blanks, QStringLiteral(" "));
    out.replace(manyBreaks, QStringLiteral("\n\n"));
    out = out.trimmed();
    const qsizetype cut = cutAfterGraphemes(out, qMax(0, limit));
    if (cut < 0)
        return out;
    return out.left(cut) + QStringLiteral("\n[\u2026truncated]");
}

std::optional<QString> ContextLoader::pdfText(const QString &path)
{
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    const std::unique_ptr<Poppler::Document> document = Poppler::Document::load(path);
    if (!document || document->isLocked())
        return std::nullopt;
    QString text;
    for (int i = 0; i < document->numPages(); ++i) {
        const std::unique_ptr<Poppler::Page> page = document->page(i);
        if (!page)
            continue;
        const QString pageText = page->text(QRectF());
        if (pageText.isEmpty())
            continue;
        text += pageText;
        text += QLatin1Char('\n');
    }
    return text;
}

std::optional<QString> ContextLoader::extract(const QString &path)
{
    const auto extraction = read(path);
    if (!extraction)
        return std::nullopt;
    return extraction->text;
}

std::optional<ContextLoader::Extraction> ContextLoader::read(const QString &path)
{
    const QString ext = QFileInfo(path).suffix().toLower();
    std::optional<QString> raw;
    if (ext == QLatin1String("pdf")) {
        raw = pdfText(path);
    } else if (ext == QLatin1String("rtf")) {
        if (const auto bytes = readBytes(path))
            raw = RtfReader::toPlainText(*bytes);
    } else {
        if (const auto bytes = readBytes(path))
            raw = strictUtf8(*bytes);
    }
    if (!raw)
        return std::nullopt;
    Extraction extraction;
    extraction.text = clean(*raw, perFileLimit);
    if (extraction.text.endsWith(QStringLiteral("\n[\u2026truncated]"))) {
        // Only a text longer than the limit gets the marker; count what it had.
        const QString full = clean(*raw, std::numeric_limits<int>::max());
        extraction.total = graphemeCount(full);
        extraction.cut = extraction.total > perFileLimit;
    }
    return extraction;
}

ContextLoader::Result ContextLoader::load(const QStringList &paths)
{
    Result result;
    QStringList blocks;
    for (const QString &path : paths) {
        const auto extraction = read(path);
        const QString name = QFileInfo(path).fileName();
        if (!extraction || extraction->text.isEmpty()) {
            qCDebug(lcSettings) << "[Ketterbloom] no text from context file" << name;
            (extraction ? result.noText : result.unreadable).append(name);
            continue;
        }
        if (extraction->cut)
            result.cut.append({name, perFileLimit, extraction->total});
        result.names.append(name);
        blocks.append(QStringLiteral("----- ") + name + QStringLiteral(" -----\n") + extraction->text);
    }
    result.text = blocks.join(QStringLiteral("\n\n"));
    return result;
}

QStringList ContextLoader::offeredExtensions()
{
    return {QStringLiteral("txt"), QStringLiteral("md"), QStringLiteral("markdown"),
            QStringLiteral("text"), QStringLiteral("pdf"), QStringLiteral("rtf")};
}

QString ContextLoader::kindsLabel()
{
    return QStringLiteral(".pdf \u00B7 .txt \u00B7 .md \u00B7 .rtf");
}

QString ContextLoader::fileDialogFilter()
{
    QStringList patterns;
    for (const QString &ext : offeredExtensions()) {
        patterns.append(QStringLiteral("*.") + ext);
        patterns.append(QStringLiteral("*.") + ext.toUpper());
    }
    return tr("Documents (%1)").arg(patterns.join(QLatin1Char(' ')));
}

QString ContextLoader::panelNothingReadMessage()
{
    return tr("Couldn't read any text from those files. A scanned PDF has no text "
              "layer \u2014 export it as text first.");
}

QString ContextLoader::onboardingNothingReadMessage()
{
    return tr("Couldn't read any text from that file.");
}

QStringList ContextLoader::notes(const Result &result)
{
    const QLocale locale;
    QStringList lines;
    for (const QString &name : result.noText) {
        const bool pdf = name.endsWith(QLatin1String(".pdf"), Qt::CaseInsensitive);
        lines.append(pdf ? tr("%1: no text found \u2014 a scanned PDF?").arg(name)
                         : tr("%1: no text found").arg(name));
    }
    for (const QString &name : result.unreadable)
        lines.append(tr("%1: could not be read (not a PDF, RTF or UTF-8 text file?)").arg(name));
    for (const Cut &cut : result.cut)
        lines.append(tr("%1: first %2 of %3 characters used")
                         .arg(cut.name, locale.toString(cut.used), locale.toString(cut.total)));
    return lines;
}
