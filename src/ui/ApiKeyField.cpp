#include "ui/ApiKeyField.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QToolButton>

ApiKeyField::ApiKeyField(QWidget *parent)
    : QWidget(parent)
    , m_edit(new QLineEdit(this))
    , m_reveal(new QToolButton(this))
{
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    m_edit->setEchoMode(QLineEdit::Password);
    m_edit->setPlaceholderText(QStringLiteral("sk-…"));
    m_edit->setAccessibleName(tr("OpenAI API key"));
    m_edit->setInputMethodHints(Qt::ImhSensitiveData | Qt::ImhNoPredictiveText | Qt::ImhNoAutoUppercase);
    m_reveal->setCheckable(true);
    m_reveal->setText(tr("Show"));
    m_reveal->setAccessibleName(tr("Show API key"));
    layout->addWidget(m_edit, 1);
    layout->addWidget(m_reveal);
    connect(m_reveal, &QToolButton::toggled, this, &ApiKeyField::setRevealed);
    connect(m_edit, &QLineEdit::editingFinished, this, &ApiKeyField::editingFinished);
}

QString ApiKeyField::text() const { return m_edit->text(); }
void ApiKeyField::setText(const QString &text) { m_edit->setText(text); }
bool ApiKeyField::isRevealed() const { return m_edit->echoMode() == QLineEdit::Normal; }

void ApiKeyField::setRevealed(bool revealed)
{
    m_edit->setEchoMode(revealed ? QLineEdit::Normal : QLineEdit::Password);
    m_reveal->setChecked(revealed);
    m_reveal->setText(revealed ? tr("Hide") : tr("Show"));
    m_reveal->setAccessibleName(revealed ? tr("Hide API key") : tr("Show API key"));
}
