#pragma once

#include "ui/Icons.h"

#include <QWidget>

// An icon drawn at the size of the text beside it: set the label's font to that text's font
// and the icon grows and shrinks with it.
class IconLabel : public QWidget
{
    Q_OBJECT
public:
    explicit IconLabel(Icons::Id id, QWidget *parent = nullptr);

    void setIcon(Icons::Id id);
    Icons::Id iconId() const { return m_id; }
    void setDisabledLook(bool disabled);
    int iconSize() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    Icons::Id m_id;
    QIcon m_icon;
    bool m_disabledLook = false;
};
