#pragma once

#include "session/RecordingPicker.h"

#include <QObject>
#include <QPointer>

class QWidget;

// Lets the user pick a saved WAV recording in ~/Documents/Ketterbloom with a file dialog.
class DialogRecordingPicker : public QObject, public RecordingPicker
{
    Q_OBJECT
public:
    explicit DialogRecordingPicker(QObject *parent = nullptr);

    // The window the dialog is shown over; may be null.
    void setParentWindow(QWidget *window) { m_window = window; }

    void pickRecording(std::function<void(const std::optional<QString> &path)> completion) override;

private:
    QPointer<QWidget> m_window;
};
