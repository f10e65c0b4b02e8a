#pragma once

#include <QSignalBlocker>
#include <QString>
#include <QWidget>

#include <functional>

class QLabel;

// One tab of the Settings dialog. Its controls write through to the settings as they are
// edited; `load()` shows the stored values again and `apply()` writes what is kept back
// until the dialog closes (the API key).
class SettingsPage : public QWidget
{
    Q_OBJECT
public:
    // `title` is the tab's label, with its mnemonic.
    explicit SettingsPage(const QString &title, QWidget *parent = nullptr);

    QString title() const { return m_title; }
    virtual void load() = 0;
    virtual void apply() {}

protected:
    // A wrapped line of help in the placeholder colour.
    static QLabel *hint(const QString &text, QWidget *parent);

    // Shows a stored value without writing it back.
    template<typename Widget, typename Setter, typename Value>
    static void setQuietly(Widget *widget, Setter setter, Value value)
    {
        const QSignalBlocker block(widget);
        std::invoke(setter, widget, value);
    }

private:
    QString m_title;
};
