#pragma once

#include "session/RecordingTranscriptionPrompt.h"

#include <QObject>
#include <QPointer>

class QMessageBox;
class QWidget;

// Asks, over the window, whether a recording is transcribed with OpenAI or on this computer:
// a small window-modal question with "With OpenAI", "On This Computer" (the default) and
// "Cancel" (also Escape and closing it).
class DialogTranscriptionPrompt : public QObject, public RecordingTranscriptionPrompt
{
    Q_OBJECT
public:
    explicit DialogTranscriptionPrompt(QObject *parent = nullptr);

    // The window the question is shown over; may be null.
    void setParentWindow(QWidget *window) { m_window = window; }

    void ask(const Question &question, std::function<void(Answer)> completion) override;

    // The question showing, if any (for tests).
    QMessageBox *openQuestion() const { return m_box; }

private:
    QPointer<QWidget> m_window;
    QPointer<QMessageBox> m_box;
};
