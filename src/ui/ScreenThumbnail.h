#pragma once

#include <QByteArray>
#include <QLabel>

// The small picture under a screen question's card: what was sent, at thumbnail size.
class ScreenThumbnail : public QLabel
{
    Q_OBJECT
public:
    explicit ScreenThumbnail(const QByteArray &jpeg, QWidget *parent = nullptr);
    bool hasPicture() const { return m_hasPicture; }

private:
    bool m_hasPicture = false;
};
