#pragma once

#include <QColor>
#include <QWidget>

class QLabel;

// How long the user has been answering: a microphone icon and the time, coloured green,
// then amber from 45 s and red from 90 s.
class AnswerTimerView : public QWidget
{
    Q_OBJECT
public:
    explicit AnswerTimerView(QWidget *parent = nullptr);

    // While speaking the elapsed time is shown at full strength; otherwise the last value
    // is shown dimmed.
    void setState(bool speaking, double seconds);

    QString text() const;
    QColor color() const { return m_color; }
    double opacity() const { return m_speaking ? 1.0 : 0.65; }
    bool isSpeaking() const { return m_speaking; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    void refresh();

    QLabel *m_icon;
    QLabel *m_label;
    bool m_speaking = false;
    double m_seconds = 0;
    QColor m_color;
};
