#pragma once

#include <QFrame>

class QLabel;
class QPushButton;

// The strip across the top of the window during a sample interview: it says the questions and
// answers are scripted, and offers the one way on ("Add your key").
class DemoRibbon : public QFrame
{
    Q_OBJECT
public:
    explicit DemoRibbon(QWidget *parent = nullptr);

    QLabel *textLabel() const { return m_text; }
    QPushButton *addKeyButton() const { return m_addKey; }

    // The ribbon's fill: the palette's highlight laid faintly over the window colour, so it
    // reads as a notice in light and dark alike while the text keeps the window's text colour.
    static QColor fillFor(const QPalette &palette);

signals:
    void addKeyRequested();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QLabel *m_text;
    QPushButton *m_addKey;
};
