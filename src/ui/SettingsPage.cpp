#include "ui/SettingsPage.h"

#include <QLabel>

SettingsPage::SettingsPage(const QString &title, QWidget *parent)
    : QWidget(parent)
    , m_title(title)
{
}

QLabel *SettingsPage::hint(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}
