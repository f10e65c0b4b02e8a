#include "settings/StoreReader.h"

#include <QMetaType>

std::optional<bool> StoreReader::boolean(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    if (v.typeId() == QMetaType::Bool)
        return v.toBool();
    if (v.typeId() == QMetaType::QString) {
        const QString s = v.toString();
        if (s == QLatin1String("true"))
            return true;
        if (s == QLatin1String("false"))
            return false;
    }
    return std::nullopt;
}

std::optional<int> StoreReader::integer(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    bool ok = false;
    int result = 0;
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        result = v.toInt(&ok);
        break;
    case QMetaType::QString:
        result = v.toString().toInt(&ok);
        break;
    default:
        break;
    }
    return ok ? std::optional<int>(result) : std::nullopt;
}

std::optional<double> StoreReader::real(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    bool ok = false;
    double result = 0;
    switch (v.typeId()) {
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Int:
    case QMetaType::LongLong:
        result = v.toDouble(&ok);
        break;
    case QMetaType::QString:
        result = v.toString().toDouble(&ok);
        break;
    default:
        break;
    }
    return ok ? std::optional<double>(result) : std::nullopt;
}

std::optional<QString> StoreReader::string(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    switch (v.typeId()) {
    case QMetaType::QString:
        return v.toString();
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Double:
        return v.toString();
    default:
        return std::nullopt;
    }
}

std::optional<QStringList> StoreReader::stringList(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    switch (v.typeId()) {
    case QMetaType::QStringList:
        return v.toStringList();
    case QMetaType::QVariantList: {
        QStringList result;
        for (const QVariant &item : v.toList()) {
            if (item.typeId() != QMetaType::QString)
                return std::nullopt;
            result.append(item.toString());
        }
        return result;
    }
    case QMetaType::QString:
        // The ini format writes a one-element list as a plain string.
        return QStringList{v.toString()};
    default:
        return std::nullopt;
    }
}

std::optional<QByteArray> StoreReader::data(const QSettings &store, const QString &key)
{
    const QVariant v = store.value(key);
    if (v.typeId() == QMetaType::QByteArray)
        return v.toByteArray();
    return std::nullopt;
}
