#include "settings/ContextLoader.h"
#include "settings/RtfReader.h"

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QPainter>
#include <QPdfWriter>
#include <QStringDecoder>
#include <QTemporaryDir>
#include <QTest>

namespace {

const char structuredDocument[] =
    "{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\fswiss Helvetica;}{\\f1 Courier{\\*\\panose 0}{\\*\\falt Mono};}}\n"
    "{\\colortbl;\\red255\\green0\\blue0;}{\\stylesheet{\\s0 Normal;}}{\\info{\\title Secret title}{\\author Me}}\n"
    "{\\*\\generator Writer 1.0;}\\pard\\plain\\f0\\fs24 Hello {\\b bold {\\i nested}} world.\\par\n"
    "Second\\tab column\\line next line\\par\n"
    "Braces \\{ and \\} and a backslash \\\\ here.\\par\n"
    "{\\*\\unknowndestination hidden {\\b deeply} hidden}{\\pict\\pngblip 89504e470d0a}{\\header Page header}Visible \n"
    "{\\field{\\*\\fldinst HYPERLINK \"https://x\"}{\\fldrslt link text}}\\par\n"
    "}";

const QString truncatedMarker = QStringLiteral("\n[\u2026truncated]");

} // namespace

class TestContextLoader : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString file(const QString &name, const QByteArray &bytes)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
            qFatal("cannot write %s", qPrintable(path));
        f.write(bytes);
        return path;
    }

    // A PDF with one line of text per entry; an empty entry makes a page without text.
    QString pdf(const QString &name, const QStringList &pages)
    {
        const QString path = m_dir.filePath(name);
        QPdfWriter writer(path);
        writer.setResolution(72);
        QPainter painter(&writer);
        painter.setFont(QFont(QStringLiteral("DejaVu Sans"), 12));
        for (qsizetype i = 0; i < pages.size(); ++i) {
            if (i > 0)
                writer.newPage();
            if (!pages.at(i).isEmpty())
                painter.drawText(QPointF(72, 100), pages.at(i));
            else
                painter.fillRect(QRectF(72, 72, 100, 100), Qt::gray);
        }
        painter.end();
        return path;
    }

    static QString rtfText(const char *rtf)
    {
        return RtfReader::toPlainText(QByteArray(rtf)).value_or(QStringLiteral("<nothing>"));
    }

private slots:
    void cleaningNormalisesWhitespace()
    {
        QCOMPARE(ContextLoader::clean(QStringLiteral("  \r\nA\t\t  b \r\n\r\n\r\n\r\n\r\n\r\nc\n\n d\t\n\n\n"), 100),
                 QStringLiteral("A b \n\nc\n\n d"));
        QCOMPARE(ContextLoader::clean(QStringLiteral("\n \t\n"), 100), QString());
        // Only runs of three or more breaks shrink; a space between breaks keeps them apart.
        QCOMPARE(ContextLoader::clean(QStringLiteral("a\n\nb\n \n\nc"), 100), QStringLiteral("a\n\nb\n \n\nc"));
    }

    void truncationCountsUserPerceivedCharacters()
    {
        QCOMPARE(ContextLoader::clean(QStringLiteral("abcdef"), 6), QStringLiteral("abcdef"));
        QCOMPARE(ContextLoader::clean(QStringLiteral("abcdefg"), 6), QStringLiteral("abcdef") + truncatedMarker);
        // "é" as e + combining accent, a flag and an emoji: one character each.
        const QString e = QStringLiteral("e\u0301");
        const QString flag = QStringLiteral("\U0001F1EB\U0001F1F7");
        const QString smile = QStringLiteral("\U0001F600");
        QCOMPARE(ContextLoader::clean(e + flag + smile, 3), e + flag + smile);
        QCOMPARE(ContextLoader::clean(e + flag + smile + QStringLiteral("x"), 3), e + flag + smile + truncatedMarker);
        QCOMPARE(ContextLoader::clean(e + flag + smile, 2), e + flag + truncatedMarker);
    }

    void textFiles()
    {
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("notes.md"), "Title\r\n\r\n\r\n\r\n\r\n\r\nBody\t\tline\r\n")),
                 std::optional<QString>(QStringLiteral("Title\n\nBody line")));
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("utf8.txt"), "caf\xc3\xa9 \xe2\x80\x94 \xf0\x9f\x98\x80")),
                 std::optional<QString>(QStringLiteral("caf\u00e9 \u2014 \U0001F600")));
        // Latin-1 bytes, a truncated sequence and a UTF-16 surrogate encoded in UTF-8 are not UTF-8.
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("latin1.txt"), "caf\xe9")), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("cut.txt"), "ok \xe2\x80")), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("surrogate.txt"), "x\xed\xa0\x80")), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("blank.text"), " \n\t\r\n")), std::optional<QString>(QString()));
        QCOMPARE(ContextLoader::extract(m_dir.filePath(QStringLiteral("missing.txt"))), std::nullopt);
        QVERIFY(QDir(m_dir.path()).mkdir(QStringLiteral("Letter.rtfd")));
        QCOMPARE(ContextLoader::extract(m_dir.filePath(QStringLiteral("Letter.rtfd"))), std::nullopt);

        const QByteArray long30k = QByteArray("0123456789").repeated(3000);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("long.txt"), long30k)),
                 std::optional<QString>(QString::fromLatin1(long30k.left(24000)) + truncatedMarker));
        const QByteArray exact = long30k.left(24000);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("exact.txt"), "  " + exact + "\n\n")),
                 std::optional<QString>(QString::fromLatin1(exact)));
    }

    void pdfFiles()
    {
        const QString cv = pdf(QStringLiteral("CV.PDF"), {QStringLiteral("Ada Lovelace, engineer"), QString(),
                                                          QStringLiteral("Second   page\twith tabs")});
        QCOMPARE(ContextLoader::extract(cv), std::optional<QString>(QStringLiteral("Ada Lovelace, engineer\nSecond page with tabs")));

        const QString scanned = pdf(QStringLiteral("scan.pdf"), {QString()});
        QCOMPARE(ContextLoader::extract(scanned), std::optional<QString>(QString()));
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("broken.pdf"), "%PDF-1.4\nnot really")), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("empty.pdf"), QByteArray())), std::nullopt);
        // A PDF named .txt is read as text and is not valid UTF-8.
        QFile::copy(cv, m_dir.filePath(QStringLiteral("cv-as.txt")));
        QCOMPARE(ContextLoader::extract(m_dir.filePath(QStringLiteral("cv-as.txt"))), std::nullopt);
    }

    void rtfStructure()
    {
        // Tables, info and generator destinations, nested groups, breaks and escapes.
        QCOMPARE(rtfText(structuredDocument),
                 QStringLiteral("Hello bold nested world.\nSecond\tcolumn\nnext line\nBraces { and } and a backslash \\ here.\n"
                                "Visible link text\n"));
        // Text after the document's last brace is ignored; raw line breaks are not text.
        QCOMPARE(rtfText("{\\rtf1 a\r\nb\\\nc}trailing"), QStringLiteral("ab\nc"));
        // Binary data is skipped by length, even when it holds braces.
        QCOMPARE(rtfText("{\\rtf1 x{\\*\\blob\\bin4 }{}\\}y}"), QStringLiteral("xy"));
    }

    void rtfCharacters()
    {
        // Code-page bytes in the default Windows-1252, and a byte string kept together.
        QCOMPARE(rtfText("{\\rtf1\\ansi caf\\'e9 \\'93quoted\\'94 \\'80 5\\'b0C}"),
                 QStringLiteral("caf\u00e9 \u201Cquoted\u201D \u20AC 5\u00B0C"));
        // \uN with its fallback characters skipped: one by default, then \uc2, \uc0 and
        // a negative value; a surrogate pair; the skip count is per group.
        QCOMPARE(rtfText("{\\rtf1 a\\u8212?b \\uc2\\u8364\\'80\\'80c {\\uc0\\u955 d}\\u-3913??e \\u-10179??\\u-8704??.}"),
                 QStringLiteral("a\u2014b \u20ACc \u03BBd\uF0B7e \U0001F600."));
        QCOMPARE(rtfText("{\\rtf1 {\\u233\\'e9}x}"), QStringLiteral("\u00e9x"));
        QCOMPARE(rtfText("{\\rtf1 \\emdash\\~\\lquote x\\rquote}"), QStringLiteral("\u2014\u00A0\u2018x\u2019"));

        if (!QStringDecoder("windows-1251").isValid())
            QSKIP("this Qt has no Windows-1251 decoder");
        QCOMPARE(rtfText("{\\rtf1\\ansi\\ansicpg1251 \\'cf\\'f0\\'e8\\'e2\\'e5\\'f2 {\\b \\'ec\\'e8\\'f0}}"),
                 QStringLiteral("\u041F\u0440\u0438\u0432\u0435\u0442 \u043C\u0438\u0440"));
        // A font's character set wins over the document's code page for that font's bytes.
        QCOMPARE(rtfText("{\\rtf1\\ansi\\ansicpg1252\\deff0{\\fonttbl{\\f0\\fnil\\fcharset0 Calibri;}"
                         "{\\f1\\fnil\\fcharset204 Calibri;}}\\f0 caf\\'e9 {\\f1 \\'cf\\'f0\\'e8}\\'e9\\f1\\'e9}"),
                 QStringLiteral("caf\u00e9 \u041F\u0440\u0438\u00e9\u0439"));
    }

    void rtfFiles()
    {
        const QString path = file(QStringLiteral("Story.RTF"),
                                  "{\\rtf1\\ansi\\ansicpg1252{\\fonttbl\\f0 Times;}\n\\f0 Na\\'efve   r\\'e9sum\\'e9\\par\\par\\par\\par\n"
                                  "{\\*\\comment private}\\u26085?\\u26412?\\par}");
        QCOMPARE(ContextLoader::extract(path), std::optional<QString>(QStringLiteral("Na\u00efve r\u00e9sum\u00e9\n\n\u65E5\u672C")));
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("plain.rtf"), "Just text, not RTF.")), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("empty.rtf"), QByteArray())), std::nullopt);
        QCOMPARE(ContextLoader::extract(file(QStringLiteral("cut.rtf"), "{\\rtf1 half a docu")),
                 std::optional<QString>(QStringLiteral("half a docu")));
    }

    void loadJoinsReadableFilesInOrder()
    {
        const QString a = file(QStringLiteral("a.txt"), "Alpha\n");
        const QString bad = file(QStringLiteral("bad.txt"), "\xff\xfe");
        const QString blank = file(QStringLiteral("blank.md"), "   ");
        const QString b = pdf(QStringLiteral("b.pdf"), {QStringLiteral("Beta")});
        const ContextLoader::Result r = ContextLoader::load({a, bad, m_dir.filePath(QStringLiteral("gone.rtf")), blank, b});
        QCOMPARE(r.names, (QStringList{QStringLiteral("a.txt"), QStringLiteral("b.pdf")}));
        QCOMPARE(r.text, QStringLiteral("----- a.txt -----\nAlpha\n\n----- b.pdf -----\nBeta"));

        const ContextLoader::Result none = ContextLoader::load({bad, blank});
        QCOMPARE(none.text, QString());
        QCOMPARE(none.names, QStringList());
    }

    void loadTellsWhatEachFileGave()
    {
        // A scanned PDF and a long notes file beside one that reads fully: both are named.
        const QString cv = file(QStringLiteral("cv.txt"), "Ten years of payments.\n");
        const QString scan = pdf(QStringLiteral("scan.pdf"), {QString()});
        const QString blank = file(QStringLiteral("blank.md"), " \n ");
        const QString bad = file(QStringLiteral("latin1.txt"), "caf\xe9");
        const QString notes = file(QStringLiteral("notes.md"), QByteArray(30000, 'x'));
        const ContextLoader::Result r = ContextLoader::load({cv, scan, blank, bad, notes});
        QCOMPARE(r.names, (QStringList{QStringLiteral("cv.txt"), QStringLiteral("notes.md")}));
        QCOMPARE(r.noText, (QStringList{QStringLiteral("scan.pdf"), QStringLiteral("blank.md")}));
        QCOMPARE(r.unreadable, QStringList{QStringLiteral("latin1.txt")});
        QCOMPARE(r.cut, (QList<ContextLoader::Cut>{{QStringLiteral("notes.md"), 24000, 30000}}));
        const QStringList lines = ContextLoader::notes(r);
        QCOMPARE(lines.size(), 4);
        QVERIFY(lines.contains(QStringLiteral("scan.pdf: no text found \u2014 a scanned PDF?")));
        QVERIFY(lines.contains(QStringLiteral("blank.md: no text found")));
        QVERIFY(lines.at(3).startsWith(QStringLiteral("notes.md: first 24")));
        QVERIFY(lines.at(3).endsWith(QStringLiteral(" characters used")));
        QVERIFY(lines.at(3).contains(QStringLiteral("30")));
        // A file exactly at the limit is not cut.
        const QString exact = file(QStringLiteral("exact.txt"), QByteArray(24000, 'y'));
        QVERIFY(ContextLoader::load({exact}).cut.isEmpty());
        QVERIFY(ContextLoader::notes(ContextLoader::load({cv})).isEmpty());
    }

    void rtfTextBoxes()
    {
        // A Word text box: the shape's properties are not text, its \shptxt is, once (the
        // drawing-object copy in \shprslt is left out).
        const QByteArray doc =
            "{\\rtf1\\ansi Body before.\\par"
            "{\\shp{\\*\\shpinst\\shpleft0\\shptop0{\\sp{\\sn shapeType}{\\sv 202}}"
            "{\\sp{\\sn fFilled}{\\sv 0}}{\\shptxt \\pard Led the ledger migration.\\par}}"
            "{\\shprslt{\\*\\do\\dobxcolumn{\\dptxbx{\\pard Led the ledger migration.\\par}}}}}"
            "Body after.{\\*\\unknown hidden}\\par}";
        QCOMPARE(rtfText(doc.constData()), QStringLiteral("Body before.\nLed the ledger migration.\nBody after.\n"));
        // Inside a skipped destination a shape stays skipped.
        QCOMPARE(rtfText("{\\rtf1 a{\\header{\\shp{\\*\\shpinst{\\shptxt hidden}}}}b}"), QStringLiteral("ab"));
    }
};

QTEST_MAIN(TestContextLoader)
#include "tst_contextloader.moc"
