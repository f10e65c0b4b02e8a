#include "ui/ScreenThumbnail.h"

#include <QPixmap>

ScreenThumbnail::ScreenThumbnail(const QByteArray &jpeg, QWidget *parent)
    : QLabel(parent)
{
    QPixmap picture;
    m_hasPicture = picture.loadFromData(jpeg, "JPEG");
    if (m_hasPicture) {
        setPixmap(picture);
        setFixedSize(picture.size());
    } else {
        setText(tr("(picture unavailable)"));
    }
    setToolTip(tr("What was sent with this question"));
    setAccessibleName(tr("Screenshot sent with the question"));
}
