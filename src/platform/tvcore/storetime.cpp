#include "platform/tvcore/storetime.h"

QVariant StoreTime::toBound(const QDateTime& time)
{
    return time.isValid() ? QVariant(time.toMSecsSinceEpoch()) : QVariant(QVariant::LongLong);
}
