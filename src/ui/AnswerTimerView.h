#pragma once

#include <QColor>
#include <QWidget>

class IconLabel;
class QLabel;

// How long the user has been answering: a microphone icon and the time, coloured green,
// then amber from 45 s and red from 90 s. The digits use a darker (light palette) or
// lighter (dark palette) shade of the colour than the tint behind them, so they read.
class AnswerTimerView : public QWidget
{
    Q_OBJECT
public:
    explicit AnswerTimerView(QWidget *parent = nullptr);

    // While speaking the elapsed time is shown on a stronger tint with a filled microphone;
    // otherwise the last value stays on a fainter tint.
    void setState(bool speaking, double seconds);

    QString text() const;
    // The signal colour (tint and border) and the digits' colour.
    QColor color() const { return m_color; }
    QColor textColor() const;
    // The tint behind the digits, painted over the window colour.
    QColor backgroundColor() const;
    double tintOpacity() const { return m_speaking ? 0.14 : 0.08; }
    bool isSpeaking() const { return m_speaking; }

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void refresh();

    IconLabel *m_icon;
    QLabel *m_label;
    bool m_speaking = false;
    double m_seconds = 0;
    QColor m_color;
};
