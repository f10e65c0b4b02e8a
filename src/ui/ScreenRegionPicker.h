#pragma once

#include <QImage>
#include <QPoint>
#include <QRect>
#include <QWidget>

class QScreen;

// The screenshot shown frozen over the whole screen so the user can drag a rectangle around
// the question: releasing the drag picks that part, Enter picks the whole screen, Esc (or
// closing the overlay) cancels. Exactly one of picked() and cancelled() is emitted; the
// overlay then hides itself.
class ScreenRegionPicker : public QWidget
{
    Q_OBJECT
public:
    // Drags smaller than this (in either direction, in overlay pixels) are taken as a slip.
    static constexpr int minimumDrag = 8;

    explicit ScreenRegionPicker(const QImage &frozen, QWidget *parent = nullptr);

    // Covers `screen` (the primary one when null) and takes the keyboard.
    void present(QScreen *screen);
    // The part of the image under `area` of the overlay, in the image's pixels.
    QRect imageRect(const QRect &area) const;
    QRect selection() const { return m_selection; }
    // Where the picture is drawn in the overlay.
    QRect pictureArea() const;

    static QString hintText();

signals:
    // In the image's pixels; an empty rectangle means the whole screen.
    void picked(const QRect &region);
    void cancelled();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void closeEvent(QCloseEvent *event) override;

private:
    void decide(bool cancel, const QRect &region = {});

    QImage m_frozen;
    QPoint m_origin;
    QRect m_selection;
    bool m_dragging = false;
    bool m_decided = false;
};
