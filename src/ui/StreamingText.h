#pragma once

#include <QTextDocument>
#include <QWidget>

// Word-wrapped plain text that grows cheaply: text that extends what is shown is appended to
// a text document, which lays out again only the paragraph that changed, and the height for
// a width is read from that layout instead of shaping the whole text again. Used for an
// answer while it streams in.
class StreamingText : public QWidget
{
    Q_OBJECT
public:
    explicit StreamingText(QWidget *parent = nullptr);

    // Appends when `text` starts with the text shown, otherwise replaces it.
    void setText(const QString &text);
    QString text() const { return m_text; }
    void clear();
    // The colour of the text (default: the palette's window text).
    void setTextColor(const QColor &color);

    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void setLayoutWidth(int width) const;

    mutable QTextDocument m_document;
    QString m_text;
    QColor m_color;
    mutable int m_layoutWidth = -1;
};
