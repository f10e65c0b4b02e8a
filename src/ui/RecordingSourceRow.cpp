#include "ui/RecordingSourceRow.h"

#include "settings/AppSettings.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>

RecordingSourceRow::RecordingSourceRow(AppSettings &settings, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
{
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    m_radio = new QRadioButton(tr("A &recording (WAV, FLAC or Ogg file)"), this);
    layout->addWidget(m_radio);

    m_details = new QWidget(this);
    auto *details = new QVBoxLayout(m_details);
    details->setContentsMargins(24, 0, 0, 0);
    auto *fileRow = new QHBoxLayout;
    m_path = new QLineEdit(m_settings.recordingFile(), m_details);
    m_path->setAccessibleName(tr("Recording played as the meeting"));
    m_path->setPlaceholderText(tr("No file chosen"));
    auto *choose = new QPushButton(tr("C&hoose…"), m_details);
    fileRow->addWidget(m_path, 1);
    fileRow->addWidget(choose);
    details->addLayout(fileRow);
    auto *endRow = new QHBoxLayout;
    auto *endLabel = new QLabel(tr("At its &end:"), m_details);
    m_atEnd = new QComboBox(m_details);
    m_atEnd->addItem(tr("Stop the session"), true);
    m_atEnd->addItem(tr("Keep the session listening"), false);
    m_atEnd->setCurrentIndex(m_settings.stopAtRecordingEnd() ? 0 : 1);
    endLabel->setBuddy(m_atEnd);
    endRow->addWidget(endLabel);
    endRow->addWidget(m_atEnd, 1);
    details->addLayout(endRow);
    m_aloud = new QCheckBox(tr("Also play it to the s&peakers"), m_details);
    m_aloud->setChecked(m_settings.playRecordingAloud());
    details->addWidget(m_aloud);
    connect(m_aloud, &QCheckBox::toggled, &m_settings, &AppSettings::setPlayRecordingAloud);
    layout->addWidget(m_details);

    connect(choose, &QPushButton::clicked, this, &RecordingSourceRow::chooseFile);
    connect(m_path, &QLineEdit::editingFinished, this, [this] { m_settings.setRecordingFile(m_path->text().trimmed()); });
    connect(m_atEnd, &QComboBox::activated, this,
            [this](int index) { m_settings.setStopAtRecordingEnd(m_atEnd->itemData(index).toBool()); });
    connect(&m_settings, &AppSettings::recordingFileChanged, m_path, [this](const QString &path) {
        if (!m_path->hasFocus())
            m_path->setText(path);
    });
}

void RecordingSourceRow::setActive(bool active)
{
    m_details->setEnabled(active);
}

void RecordingSourceRow::chooseFile()
{
    auto *dialog = new QFileDialog(this, tr("Recording to play as the meeting"),
                                   QFileInfo(m_settings.recordingFile()).absolutePath(),
                                   tr("Sound files (*.wav *.flac *.ogg *.oga *.opus);;All files (*)"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFile);
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString &path) {
        m_path->setText(path);
        m_settings.setRecordingFile(path);
    });
    dialog->open();
}
