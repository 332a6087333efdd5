#include "ole/platform/commands/KvDCCommand.h"

#include "ole/platform/os/KvAssert.h"
#include "ole/platform/settings/KvLog.h"

namespace KvDC {

void ErrorNullRep()
{
    Log("KvDC: a command handle without a body was used\n");
    KV_ASSERT(false);
}

}  // namespace KvDC
