#pragma once

#include "review/ReviewFigures.h"
#include "review/SessionReview.h"

#include <QHash>
#include <QString>

// The review page of one session: a self-contained HTML file (inline SVG and CSS, no
// scripts, nothing fetched) filled from a template compiled into the program
// (":/review/ReviewPage.html"). Everything taken from the records is HTML-escaped.
class ReviewPage
{
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
