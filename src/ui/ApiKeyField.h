#pragma once

#include <QWidget>

class QLineEdit;
class QToolButton;

// A masked entry for the API key with a show/hide button.
class ApiKeyField : public QWidget
{
    Q_OBJECT
public:
    explicit ApiKeyField(QWidget *parent = nullptr);

    QString text() const;
    void setText(const QString &text);
    bool isRevealed() const;
    void setRevealed(bool revealed);
    QLineEdit *lineEdit() const { return m_edit; }

signals:
    // The user finished editing (Return or focus left the field).
    void editingFinished();

private:
    QLineEdit *m_edit;
    QToolButton *m_reveal;
};
