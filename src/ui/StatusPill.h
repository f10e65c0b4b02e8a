#pragma once

#include "realtime/RealtimeTypes.h"

#include <QColor>
#include <QWidget>

// A coloured dot and a caption naming the connection status.
class StatusPill : public QWidget
{
    Q_OBJECT
public:
    explicit StatusPill(QWidget *parent = nullptr);

    // While the session starts and the connection is still idle, the pill says "Starting…".
    void setStatus(const RealtimeStatus &status, bool starting = false);
    QString text() const { return m_text; }
    QColor dotColor() const { return m_color; }

    static QString labelFor(RealtimeStatus::Kind kind);
    static QColor colorFor(RealtimeStatus::Kind kind);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    QFont captionFont() const;

    QString m_text;
    QColor m_color;
};
