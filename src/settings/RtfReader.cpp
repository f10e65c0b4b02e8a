#include "settings/RtfReader.h"

#include <QHash>
#include <QList>
#include <QStringDecoder>

#include <array>
#include <utility>

namespace {

// Windows-1252 differs from Latin-1 only in 0x80-0x9F; its five unassigned bytes map to the
// C1 controls of the same value, as Windows itself does.
constexpr std::array<char16_t, 32> cp1252High{
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

QString decode1252(const QByteArray &bytes)
{
    QString out;
    out.reserve(bytes.size());
    for (const char c : bytes) {
        const auto b = static_cast<unsigned char>(c);
        out.append(QChar(b >= 0x80 && b < 0xA0 ? cp1252High[b - 0x80] : char16_t(b)));
    }
    return out;
}

// Destinations whose text is not part of the document body.
bool isSkippedDestination(const QByteArray &word)
{
    static const QList<QByteArray> skipped{
        "fonttbl", "colortbl", "stylesheet", "info", "pict", "object", "objdata", "nonshppict",
        "header", "headerl", "headerr", "headerf", "footer", "footerl", "footerr", "footerf",
        "footnote", "fldinst", "listtable", "listoverridetable", "rsidtbl", "generator",
        "xmlnstbl", "themedata", "colorschememapping", "datastore", "latentstyles", "filetbl",
        "revtbl", "bkmkstart", "bkmkend", "datafield", "private", "mmathPr", "pgdsctbl",
        "operator", "author", "title", "subject", "keywords", "comment", "doccomm",
        // Shape properties, and the drawing-object copy of a text box's text (read once,
        // from \shptxt).
        "sp", "shprslt",
    };
    return skipped.contains(word);
}

// Control words that stand for one character.
std::optional<QString> symbolFor(const QByteArray &word)
{
    static const QList<std::pair<QByteArray, char16_t>> symbols{
        {"par", u'\n'}, {"line", u'\n'}, {"sect", u'\n'}, {"page", u'\n'}, {"row", u'\n'},
        {"tab", u'\t'}, {"cell", u'\t'},
        {"emdash", u'\u2014'}, {"endash", u'\u2013'}, {"bullet", u'\u2022'},
        {"lquote", u'\u2018'}, {"rquote", u'\u2019'}, {"ldblquote", u'\u201C'},
        {"rdblquote", u'\u201D'}, {"emspace", u'\u2003'}, {"enspace", u'\u2002'},
        {"qmspace", u'\u2005'},
    };
    for (const auto &[name, ch] : symbols) {
        if (name == word)
            return QString(QChar(ch));
    }
    return std::nullopt;
}

// Windows code page of an RTF font character set; 0 for the document's own code page.
int codePageOfCharset(int charset)
{
    switch (charset) {
    case 77: return 10000;
    case 128: return 932;
    case 129: return 949;
    case 134: return 936;
    case 136: return 950;
    case 161: return 1253;
    case 162: return 1254;
    case 163: return 1258;
    case 177: return 1255;
    case 178: return 1256;
    case 186: return 1257;
    case 204: return 1251;
    case 222: return 874;
    case 238: return 1250;
    case 255: return 437;
    default: return 0;
    }
}

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

class Parser
{
public:
    explicit Parser(const QByteArray &data) : m_data(data) {}

    QString run()
    {
        m_groups.append(Group{});
        while (m_pos < m_data.size() && !m_groups.isEmpty()) {
            const char c = m_data.at(m_pos++);
            switch (c) {
            case '{':
                flush();
                m_pendingSkip = 0;
                m_groups.append(Group(m_groups.last()));
                m_groups.last().starred = false;
                break;
            case '}':
                flush();
                m_pendingSkip = 0;
                m_groups.removeLast();
                // The document's outermost group closes after the first one.
                if (m_groups.size() == 1)
                    m_groups.clear();
                break;
            case '\\':
                controlSequence();
                break;
            case '\r':
            case '\n':
                break;
            case '\t':
                character(QStringLiteral("\t"));
                break;
            default:
                byte(c);
                break;
            }
        }
        flush();
        return m_out;
    }

private:
    struct Group
    {
        bool skip = false;
        int unicodeSkip = 1;
        int font = -1;          // current \fN, -1 before any
        bool fontTable = false; // inside \fonttbl, where \fN and \fcharsetN define fonts
        bool starred = false;   // "\*" opened this group and its destination word is still to come
    };

    Group &group() { return m_groups.last(); }

    // Any token consumed while skipping the fallback of a \uN counts as one character.
    bool consumedBySkip()
    {
        if (m_pendingSkip <= 0)
            return false;
        --m_pendingSkip;
        return true;
    }

    void byte(char c)
    {
        if (consumedBySkip() || group().skip)
            return;
        m_bytes.append(c);
    }

    void character(const QString &text)
    {
        if (consumedBySkip() || group().skip)
            return;
        flush();
        m_out += text;
    }

    void flush()
    {
        if (m_bytes.isEmpty())
            return;
        // A font's character set overrides the document's code page for its bytes.
        const int font = group().font >= 0 ? group().font : m_defaultFont;
        m_out += RtfReader::decodeCodePage(m_bytes, m_fontCodePages.value(font, m_codePage));
        m_bytes.clear();
    }

    void controlSequence()
    {
        if (m_pos >= m_data.size())
            return;
        const char c = m_data.at(m_pos);
        if (!isLetter(c)) {
            ++m_pos;
            controlSymbol(c);
            return;
        }
        const qsizetype start = m_pos;
        while (m_pos < m_data.size() && isLetter(m_data.at(m_pos)))
            ++m_pos;
        const QByteArray word = m_data.mid(start, m_pos - start);
        std::optional<int> parameter;
        const qsizetype numberStart = m_pos;
        if (m_pos < m_data.size() && m_data.at(m_pos) == '-')
            ++m_pos;
        while (m_pos < m_data.size() && isDigit(m_data.at(m_pos)))
            ++m_pos;
        if (m_pos > numberStart && isDigit(m_data.at(m_pos - 1))) {
            bool ok = false;
            const long long value = m_data.mid(numberStart, m_pos - numberStart).toLongLong(&ok);
            if (ok)
                parameter = int(qBound<long long>(-2147483647LL, value, 2147483647LL));
        } else {
            m_pos = numberStart;
        }
        if (m_pos < m_data.size() && m_data.at(m_pos) == ' ')
            ++m_pos;
        controlWord(word, parameter);
    }

    void controlSymbol(char c)
    {
        switch (c) {
        case '\'': {
            const int hi = m_pos < m_data.size() ? hexValue(m_data.at(m_pos)) : -1;
            const int lo = m_pos + 1 < m_data.size() ? hexValue(m_data.at(m_pos + 1)) : -1;
            if (hi < 0 || lo < 0)
                return;
            m_pos += 2;
            byte(char(hi * 16 + lo));
            return;
        }
        case '*':
            group().skip = true;
            group().starred = true;
            return;
        case '{':
        case '}':
        case '\\':
            byte(c);
            return;
        case '~':
            character(QStringLiteral("\u00A0"));
            return;
        case '_':
            character(QStringLiteral("\u2011"));
            return;
        case '\r':
        case '\n':
            character(QStringLiteral("\n"));
            return;
        default:
            // "\-" (optional hyphen), "\:" (index entry) and the like show nothing.
            consumedBySkip();
            return;
        }
    }

    void fontTableWord(const QByteArray &word, std::optional<int> parameter)
    {
        if (word == "f" && parameter) {
            m_fontTableFont = *parameter;
        } else if (word == "fcharset" && parameter) {
            if (const int codePage = codePageOfCharset(*parameter); codePage > 0)
                m_fontCodePages.insert(m_fontTableFont, codePage);
        }
    }

    void controlWord(const QByteArray &word, std::optional<int> parameter)
    {
        if (word == "bin") {
            // Raw binary data of the given length follows; it is never text.
            flush();
            m_pos = qMin(m_data.size(), m_pos + qMax(0, parameter.value_or(0)));
            return;
        }
        flush();
        if (group().fontTable) {
            fontTableWord(word, parameter);
            return;
        }
        if (consumedBySkip())
            return;
        if (std::exchange(group().starred, false) && word == "shpinst" && m_groups.size() >= 2
            && !m_groups.at(m_groups.size() - 2).skip) {
            // A Word shape (a text box): its properties are skipped below, its \shptxt is text.
            group().skip = false;
            return;
        }
        if (word == "fonttbl") {
            group().skip = true;
            group().fontTable = true;
            return;
        }
        if (word == "f" && parameter) {
            group().font = *parameter;
            return;
        }
        if (word == "deff" && parameter) {
            m_defaultFont = *parameter;
            return;
        }
        if (word == "plain") {
            group().font = -1;
            return;
        }
        if (isSkippedDestination(word)) {
            group().skip = true;
            return;
        }
        if (word == "uc") {
            group().unicodeSkip = qMax(0, parameter.value_or(1));
            return;
        }
        if (word == "u") {
            if (parameter) {
                int code = *parameter;
                if (code < 0)
                    code += 65536;
                if (code >= 0 && code <= 0xFFFF)
                    character(QString(QChar(char16_t(code))));
            }
            m_pendingSkip = group().unicodeSkip;
            return;
        }
        if (word == "ansicpg") {
            flush();
            if (parameter)
                m_codePage = *parameter;
            return;
        }
        if (word == "mac" || word == "pc" || word == "pca" || word == "ansi") {
            flush();
            m_codePage = word == "mac" ? 10000 : word == "pc" ? 437 : word == "pca" ? 850 : 1252;
            return;
        }
        if (const auto symbol = symbolFor(word)) {
            character(*symbol);
            return;
        }
        // Formatting and everything else shows nothing.
    }

    const QByteArray &m_data;
    qsizetype m_pos = 0;
    QList<Group> m_groups;
    QByteArray m_bytes;
    QString m_out;
    int m_codePage = 1252;
    int m_defaultFont = 0;
    int m_fontTableFont = -1;
    QHash<int, int> m_fontCodePages;
    int m_pendingSkip = 0;
};

} // namespace

QString RtfReader::decodeCodePage(const QByteArray &bytes, int codePage)
{
    if (codePage == 1252)
        return decode1252(bytes);
    QByteArray name;
    if (codePage == 65001)
        name = "UTF-8";
    else if (codePage == 10000)
        name = "macintosh";
    else if (codePage >= 1250 && codePage <= 1258)
        name = "windows-" + QByteArray::number(codePage);
    else if (codePage == 932)
        name = "Shift_JIS";
    else if (codePage == 936)
        name = "GBK";
    else if (codePage == 949)
        name = "EUC-KR";
    else if (codePage == 950)
        name = "Big5";
    else
        name = "cp" + QByteArray::number(codePage);
    QStringDecoder decoder(name.constData(), QStringConverter::Flag::Stateless);
    if (!decoder.isValid())
        return decode1252(bytes);
    return decoder.decode(bytes);
}

std::optional<QString> RtfReader::toPlainText(const QByteArray &rtf)
{
    qsizetype start = 0;
    if (rtf.startsWith("\xEF\xBB\xBF"))
        start = 3;
    while (start < rtf.size() && (rtf.at(start) == ' ' || rtf.at(start) == '\t' || rtf.at(start) == '\r'
                                  || rtf.at(start) == '\n'))
        ++start;
    if (rtf.mid(start, 5) != "{\\rtf")
        return std::nullopt;
    const QByteArray body = rtf.mid(start);
    return Parser(body).run();
}
