#pragma once

#include "review/ReviewFigures.h"
#include "review/SessionReview.h"

#include <QCoreApplication>
#include <QHash>
#include <QString>

// The review page of one session: a self-contained HTML file (inline SVG and CSS, no
// scripts, nothing fetched) filled from a template compiled into the program
// (":/review/ReviewPage.html"). Everything taken from the records is HTML-escaped; the
// page's words are the template's, or tr() here for those that come with the figures.
class ReviewPage
{
    Q_DECLARE_TR_FUNCTIONS(ReviewPage)

public:
    static QString html(const SessionReview &review, ReviewFigures::Band band);

    // Fills {{NAME}} placeholders of `page` in one pass: text put in is never read for more
    // placeholders. An unknown name is left out.
    static QString fill(const QString &page, const QHash<QString, QString> &values);

    struct Written
    {
        QString path;
        QString error;   // empty on success
        bool unreadable = false;   // the records could not be read (else the page could not be written)
        bool ok() const { return error.isEmpty(); }
    };
    // Reads the records at `eventsOrTranscriptPath` and writes "meeting_<stamp>.review.html"
    // beside them (atomically). `readRecording` as for SessionReview::load.
    static Written write(const QString &eventsOrTranscriptPath, ReviewFigures::Band band, bool readRecording = true);
};
