#pragma once

#include "review/ReviewFigures.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>

// `ketterbloom --review FILE`: writes the review page of a saved session (from its events log
// or its transcript) beside its records and prints the page's path. Returns the exit code:
// 0 written, 2 no such file or not a session's records, 1 the page could not be written.
class ReviewCommand
{
    Q_DECLARE_TR_FUNCTIONS(ReviewCommand)

public:
    static int run(const QString &path, ReviewFigures::Band band, std::FILE *out, std::FILE *err);
};
