#include "ui/Icons.h"

#include <QApplication>
#include <QStyle>

namespace Icons {

namespace {
struct Entry
{
    const char *theme;
    QStyle::StandardPixmap fallback;
};

Entry entry(Id id)
{
    switch (id) {
    case Id::play: return {"media-playback-start", QStyle::SP_MediaPlay};
    case Id::stop: return {"media-playback-stop", QStyle::SP_MediaStop};
    case Id::mic: return {"audio-input-microphone", QStyle::SP_MediaVolume};
    case Id::micActive: return {"audio-input-microphone-high", QStyle::SP_MediaVolume};
    case Id::clock: return {"appointment-soon", QStyle::SP_BrowserReload};
    case Id::lastAnswer: return {"task-complete", QStyle::SP_DialogApplyButton};
    case Id::folder: return {"folder", QStyle::SP_DirIcon};
    case Id::settings: return {"preferences-system", QStyle::SP_FileDialogDetailedView};
    case Id::moon: return {"weather-clear-night", QStyle::SP_TitleBarShadeButton};
    case Id::sun: return {"weather-clear", QStyle::SP_TitleBarUnshadeButton};
    case Id::textSmaller: return {"zoom-out", QStyle::SP_ArrowDown};
    case Id::textLarger: return {"zoom-in", QStyle::SP_ArrowUp};
    case Id::info: return {"dialog-information", QStyle::SP_MessageBoxInformation};
    case Id::transcript: return {"text-x-generic", QStyle::SP_FileIcon};
    case Id::recording: return {"audio-x-generic", QStyle::SP_MediaVolume};
    case Id::close: return {"window-close", QStyle::SP_TitleBarCloseButton};
    case Id::interviewer: return {"system-users", QStyle::SP_MessageBoxQuestion};
    case Id::copilot: return {"starred", QStyle::SP_DialogHelpButton};
    case Id::person: return {"avatar-default", QStyle::SP_DirHomeIcon};
    case Id::expand: return {"pan-down-symbolic", QStyle::SP_ArrowDown};
    case Id::collapse: return {"pan-end-symbolic", QStyle::SP_ArrowRight};
    case Id::arrowDown: return {"go-down", QStyle::SP_ArrowDown};
    case Id::context: return {"document-open", QStyle::SP_DialogOpenButton};
    case Id::job: return {"document-properties", QStyle::SP_FileDialogInfoView};
    case Id::check: return {"emblem-ok", QStyle::SP_DialogApplyButton};
    case Id::warning: return {"dialog-warning", QStyle::SP_MessageBoxWarning};
    }
    return {"", QStyle::SP_CustomBase};
}
} // namespace

QString themeName(Id id)
{
    return QString::fromLatin1(entry(id).theme);
}

QIcon icon(Id id)
{
    const Entry e = entry(id);
    QIcon themed = QIcon::fromTheme(QString::fromLatin1(e.theme));
    if (!themed.isNull())
        return themed;
    if (QApplication::style())
        return QApplication::style()->standardIcon(e.fallback);
    return {};
}

} // namespace Icons
