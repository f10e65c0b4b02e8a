#pragma once

#include <QProxyStyle>

// The Fusion style with check boxes and radio buttons whose borders stand out from the
// window and the field behind them in both palettes (Fusion darkens the window colour for
// them, which disappears on a dark palette).
class AppStyle : public QProxyStyle
{
    Q_OBJECT
public:
    AppStyle();

    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
                       const QWidget *widget = nullptr) const override;
};
