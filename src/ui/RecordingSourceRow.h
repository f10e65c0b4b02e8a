#pragma once

#include <QWidget>

class AppSettings;
class QCheckBox;
class QComboBox;
class QLineEdit;
class QRadioButton;

// The "recording" choice of Settings ▸ Audio: a sound file played as the meeting (rehearsal
// against a recorded mock interview, a reproduced session), and what happens at its end.
class RecordingSourceRow : public QWidget
{
    Q_OBJECT
public:
    explicit RecordingSourceRow(AppSettings &settings, QWidget *parent = nullptr);

    QRadioButton *radio() const { return m_radio; }
    // Enables the file and end choices when the recording is the meeting source.
    void setActive(bool active);

private:
    void chooseFile();

    AppSettings &m_settings;
    QRadioButton *m_radio = nullptr;
    QLineEdit *m_path = nullptr;
    QWidget *m_details = nullptr;
    QComboBox *m_atEnd = nullptr;
    QCheckBox *m_aloud = nullptr;
};
