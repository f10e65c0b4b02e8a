#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Reads the plain text out of a Rich Text Format document: the visible characters, with
// paragraph and line breaks as "\n" and tabs as "\t". Formatting is dropped, and so are the
// destinations that hold no body text (font, colour and style tables, document info,
// pictures, headers and footers, field instructions, and every "\*" destination except a
// shape's "\*\shpinst", whose "\shptxt" holds the text of a Word text box).
//
// Characters come from plain text, from "\'hh" bytes decoded in the document's code page
// ("\ansicpg", Windows-1252 when absent, or the character set of the current font when its
// "\fcharset" names one) and from "\uN", after which the "\ucN" fallback characters (one by
// default) are skipped.
class RtfReader
{
public:
    // Nothing when the bytes are not an RTF document (they must begin with "{\rtf").
    static std::optional<QString> toPlainText(const QByteArray &rtf);

    // Decodes bytes of a Windows/IBM code page ("1252", "1251", "437", "65001" for UTF-8...).
    // Unknown code pages decode as Windows-1252.
    static QString decodeCodePage(const QByteArray &bytes, int codePage);
};
