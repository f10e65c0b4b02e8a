#pragma once

#include <QList>
#include <QString>
#include <QWidget>

class FlowLayout;
class IconLabel;
class QLabel;
class QScrollArea;
class QToolButton;

// The message above the cards: an icon and the text across the full width, wrapping; below
// it the buttons that reveal saved files and the optional action button, each with its full
// label (they wrap onto another row rather than shrink); a close button at the top right.
// It never takes more than the height it is given (a third of the window): longer
// messages scroll inside it.
class BannerView : public QWidget
{
    Q_OBJECT
public:
    struct Link
    {
        QString label;   // "Transcript", "Recording" or "Folder"
        QString path;
    };

    explicit BannerView(QWidget *parent = nullptr);

    // An empty actionLabel shows no action button.
    void setContent(const QString &text, const QList<Link> &links, const QString &actionLabel);
    QString text() const;
    QStringList buttonLabels() const;
    QList<QToolButton *> buttons() const { return m_linkButtons; }
    QToolButton *closeButton() const { return m_close; }
    QScrollArea *scrollArea() const { return m_scroll; }

    // The most height the banner takes; beyond it the message scrolls.
    void setMaximumBannerHeight(int height);
    int maximumBannerHeight() const { return m_maxHeight; }

signals:
    void revealRequested(const QString &path);
    void actionTriggered();
    void closeRequested();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    bool event(QEvent *event) override;

private:
    void fitHeight();

    QScrollArea *m_scroll;
    QWidget *m_content;
    IconLabel *m_icon;
    QLabel *m_text;
    QWidget *m_buttonRow;
    FlowLayout *m_buttons;
    QToolButton *m_close;
    QList<QToolButton *> m_linkButtons;
    int m_maxHeight = QWIDGETSIZE_MAX;
};
