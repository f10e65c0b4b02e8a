#include "ui/StreamingText.h"

#include <QAbstractTextDocumentLayout>
#include <QEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QTextCursor>

#include <cmath>

StreamingText::StreamingText(QWidget *parent)
    : QWidget(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    m_document.setDocumentMargin(0);
    m_document.setUndoRedoEnabled(false);
    m_document.setDefaultFont(font());
}

void StreamingText::setText(const QString &text)
{
    if (text == m_text)
        return;
    if (!m_text.isEmpty() && text.startsWith(m_text)) {
        QTextCursor cursor(&m_document);
        cursor.movePosition(QTextCursor::End);
        cursor.insertText(text.mid(m_text.size()));
    } else {
        m_document.setPlainText(text);
    }
    m_text = text;
    updateGeometry();
    update();
}

void StreamingText::clear()
{
    setText(QString());
}

void StreamingText::setTextColor(const QColor &color)
{
    m_color = color;
    update();
}

void StreamingText::setLayoutWidth(int width) const
{
    if (width == m_layoutWidth)
        return;
    m_layoutWidth = width;
    m_document.setTextWidth(width);
}

int StreamingText::heightForWidth(int width) const
{
    if (m_text.isEmpty())
        return 0;
    setLayoutWidth(qMax(1, width));
    return int(std::ceil(m_document.size().height()));
}

QSize StreamingText::sizeHint() const
{
    const int w = width() > 0 ? width() : 300;
    return {w, heightForWidth(w)};
}

QSize StreamingText::minimumSizeHint() const
{
    return {fontMetrics().averageCharWidth() * 4, 0};
}

void StreamingText::paintEvent(QPaintEvent *event)
{
    if (m_text.isEmpty())
        return;
    setLayoutWidth(width());
    QPainter p(this);
    QAbstractTextDocumentLayout::PaintContext context;
    context.palette = palette();
    context.palette.setColor(QPalette::Text, m_color.isValid() ? m_color : palette().color(QPalette::WindowText));
    context.clip = QRectF(event->rect());
    p.setClipRect(event->rect());
    m_document.documentLayout()->draw(&p, context);
}

void StreamingText::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::FontChange) {
        m_document.setDefaultFont(font());
        updateGeometry();
    }
    QWidget::changeEvent(event);
}
