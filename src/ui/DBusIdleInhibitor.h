#pragma once

#include "session/IdleInhibitor.h"

#include <QObject>

#include <optional>

// Keeps the screen saver and idle sleep away through the freedesktop ScreenSaver
// Inhibit/UnInhibit calls. Where no such service answers, nothing happens.
class DBusIdleInhibitor : public QObject, public IdleInhibitor
{
    Q_OBJECT
public:
    explicit DBusIdleInhibitor(QObject *parent = nullptr);
    ~DBusIdleInhibitor() override;

    void inhibit(const QString &reason) override;
    void release() override;

    // The cookie of the inhibition held now, if any.
    std::optional<uint> cookie() const { return m_cookie; }
    bool isInhibiting() const { return m_wanted; }

private:
    void sendUnInhibit(uint cookie);

    bool m_wanted = false;
    bool m_pending = false;
    std::optional<uint> m_cookie;
};
