#pragma once

#include <QKeySequence>
#include <QList>
#include <QMap>
#include <QObject>
#include <QString>

// A way of receiving key combinations pressed anywhere on the desktop: the XDG desktop
// portal, or key grabs on an X11 display.
class ShortcutBackend : public QObject
{
    Q_OBJECT
public:
    struct Binding
    {
        QString id;
        QString label;
        QKeySequence keys; // empty: registered without a preferred key, or not at all
    };

    using QObject::QObject;

    // Replaces every shortcut bound before. The outcome comes as bound() or failed().
    virtual void bind(const QList<Binding> &bindings) = 0;

signals:
    void activated(const QString &id);
    // Action id -> the key combination as the desktop shows it; actions that did not get
    // their keys (taken by another application, or changed by the user in the desktop's own
    // settings) show what they have, or are missing.
    void bound(const QMap<QString, QString> &triggers);
    void failed(const QString &message);
};
