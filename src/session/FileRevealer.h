#pragma once

#include <QStringList>

// Shows files in the desktop's file manager.
class FileRevealer
{
public:
    virtual ~FileRevealer() = default;
    virtual void reveal(const QStringList &paths) = 0;
};
