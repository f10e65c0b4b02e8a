#pragma once

#include <QList>
#include <QString>
#include <QWidget>

class QHBoxLayout;
class QLabel;
class QToolButton;

// The one-line message above the cards, with buttons that reveal saved files, an optional
// action button and a close button.
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

signals:
    void revealRequested(const QString &path);
    void actionTriggered();
    void closeRequested();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QLabel *m_icon;
    QLabel *m_text;
    QHBoxLayout *m_buttons;
    QToolButton *m_close;
    QList<QToolButton *> m_linkButtons;
};
