#include "ui/ScreenRegionPicker.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QScreen>

#include <algorithm>
#include <cstdlib>

namespace {

// The rectangle between two corners of a drag (the far corner itself not included).
QRect span(const QPoint &a, const QPoint &b)
{
    return QRect(QPoint(std::min(a.x(), b.x()), std::min(a.y(), b.y())),
                 QSize(std::abs(a.x() - b.x()), std::abs(a.y() - b.y())));
}

} // namespace

ScreenRegionPicker::ScreenRegionPicker(const QImage &frozen, QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
    , m_frozen(frozen)
{
    setAttribute(Qt::WA_DeleteOnClose, false);
    setWindowTitle(tr("Choose the question"));
    setCursor(Qt::CrossCursor);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(false);
}

QString ScreenRegionPicker::hintText()
{
    return tr("Drag around the question  ·  Enter: whole screen  ·  Esc: cancel");
}

void ScreenRegionPicker::present(QScreen *screen)
{
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen)
        setGeometry(screen->geometry());
    showFullScreen();
    raise();
    activateWindow();
    setFocus(Qt::OtherFocusReason);
}

QRect ScreenRegionPicker::pictureArea() const
{
    // The whole picture, as large as fits, keeping its proportions (a screenshot of several
    // monitors is wider than the one screen it is shown on).
    if (m_frozen.isNull())
        return rect();
    QSize fitted = m_frozen.size();
    fitted.scale(size(), Qt::KeepAspectRatio);
    QRect area(QPoint(0, 0), fitted);
    area.moveCenter(rect().center());
    return area;
}

QRect ScreenRegionPicker::imageRect(const QRect &area) const
{
    const QRect picture = pictureArea();
    if (picture.width() <= 0 || picture.height() <= 0)
        return {};
    const double sx = double(m_frozen.width()) / picture.width();
    const double sy = double(m_frozen.height()) / picture.height();
    const QRect inside = area.intersected(picture).translated(-picture.topLeft());
    const QRectF mapped(inside.x() * sx, inside.y() * sy, inside.width() * sx, inside.height() * sy);
    return mapped.toAlignedRect().intersected(m_frozen.rect());
}

void ScreenRegionPicker::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.fillRect(rect(), Qt::black);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(pictureArea(), m_frozen);

    // Dim everything but the selection.
    QPainterPath shade;
    shade.addRect(rect());
    if (!m_selection.isEmpty()) {
        QPainterPath hole;
        hole.addRect(m_selection);
        shade = shade.subtracted(hole);
    }
    painter.fillPath(shade, QColor(0, 0, 0, 110));
    if (!m_selection.isEmpty()) {
        painter.setPen(QPen(QColor(80, 160, 255), 2));
        painter.drawRect(m_selection.adjusted(0, 0, -1, -1));
    }

    // The hint, on a dark plate at the top.
    QFont font = painter.font();
    font.setPointSizeF(font.pointSizeF() * 1.2);
    painter.setFont(font);
    const QString hint = hintText();
    QRect plate = painter.fontMetrics().boundingRect(hint).adjusted(-14, -8, 14, 8);
    plate.moveCenter(QPoint(width() / 2, plate.height() / 2 + 24));
    painter.setPen(Qt::NoPen);
    painter.setBrush(QColor(20, 20, 20, 210));
    painter.drawRoundedRect(plate, 8, 8);
    painter.setPen(Qt::white);
    painter.drawText(plate, Qt::AlignCenter, hint);
}

void ScreenRegionPicker::mousePressEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton)
        return;
    m_dragging = true;
    m_origin = event->position().toPoint();
    m_selection = QRect();
    update();
}

void ScreenRegionPicker::mouseMoveEvent(QMouseEvent *event)
{
    if (!m_dragging)
        return;
    m_selection = span(m_origin, event->position().toPoint()).intersected(pictureArea());
    update();
}

void ScreenRegionPicker::mouseReleaseEvent(QMouseEvent *event)
{
    if (!m_dragging || event->button() != Qt::LeftButton)
        return;
    m_dragging = false;
    m_selection = span(m_origin, event->position().toPoint()).intersected(pictureArea());
    if (m_selection.width() < minimumDrag || m_selection.height() < minimumDrag) {
        m_selection = QRect();
        update();
        return;
    }
    decide(false, imageRect(m_selection));
}

void ScreenRegionPicker::keyPressEvent(QKeyEvent *event)
{
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        decide(false);
        break;
    case Qt::Key_Escape:
        decide(true);
        break;
    default:
        QWidget::keyPressEvent(event);
    }
}

void ScreenRegionPicker::closeEvent(QCloseEvent *event)
{
    if (!m_decided) {
        m_decided = true;
        emit cancelled();
    }
    event->accept();
}

void ScreenRegionPicker::decide(bool cancel, const QRect &region)
{
    if (m_decided)
        return;
    m_decided = true;
    hide();
    if (cancel)
        emit cancelled();
    else
        emit picked(region);
}
