#include "ui/BackgroundContextLoad.h"

#include <QFutureWatcher>
#include <QtConcurrent/QtConcurrentRun>

void BackgroundContextLoad::start(QObject *owner, const QStringList &paths,
                                  std::function<void(const ContextLoader::Result &)> done)
{
    // The watcher belongs to the owner: if the owner goes first, so does the delivery.
    auto *watcher = new QFutureWatcher<ContextLoader::Result>(owner);
    QObject::connect(watcher, &QFutureWatcher<ContextLoader::Result>::finished, owner,
                     [watcher, done = std::move(done)] {
                         done(watcher->result());
                         watcher->deleteLater();
                     });
    watcher->setFuture(QtConcurrent::run([paths] { return ContextLoader::load(paths); }));
}
