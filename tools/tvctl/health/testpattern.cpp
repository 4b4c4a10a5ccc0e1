#include "tvctl/health/testpattern.h"

QByteArray testPattern()
{
    return QByteArray("X5O!P%@AP[4\\PZX54(P^)7CC)7}") + "$EICAR" + "-STANDARD" + "-ANTIVIRUS" +
           "-TEST-FILE!" + "$H+H*";
}
