#include "ui/DialogTranscriptionPrompt.h"

#include <QMessageBox>
#include <QPushButton>

DialogTranscriptionPrompt::DialogTranscriptionPrompt(QObject *parent)
    : QObject(parent)
{
}

void DialogTranscriptionPrompt::ask(const Question &question, std::function<void(Answer)> completion)
{
    auto *box = new QMessageBox(m_window);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(m_window ? Qt::WindowModal : Qt::ApplicationModal);
    box->setIcon(QMessageBox::Question);
    box->setWindowTitle(question.title);
    box->setText(question.title);
    box->setInformativeText(question.text);
    QPushButton *service = box->addButton(tr("With OpenAI"), QMessageBox::AcceptRole);
    QPushButton *device = box->addButton(tr("On This Computer"), QMessageBox::AcceptRole);
    QPushButton *cancel = box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(device);
    box->setEscapeButton(cancel);
    m_box = box;
    // One answer only; anything but the two choices is Cancel.
    connect(box, &QMessageBox::finished, this, [box, service, device, completion] {
        const QAbstractButton *clicked = box->clickedButton();
        const Answer answer = clicked == service  ? Answer::withService
                              : clicked == device ? Answer::onThisComputer
                                                  : Answer::cancel;
        if (completion)
            completion(answer);
    });
    box->open();
}
