// The process-wide service object and the replacement of its services.

#include "ole/platform/os/StockServices.h"

namespace Kv::Platform {

constinit StockRefCounter stockRefCounter;

constinit OSServices theOS{&stockMemory,     &stockRefCounter, &stockDiagnostics,
                           &stockSynchronisation, &stockSystemInfo, &stockFileSystem};

}  // namespace Kv::Platform

namespace {

// Puts `service`, or the stock one for null, in place and hands back what was there.
template <class T, class Stock>
T* exchange(std::atomic<T*>& slot, T* service, Stock* stock) noexcept
{
    return slot.exchange(service ? service : stock, std::memory_order_acq_rel);
}

}  // namespace

iMemory* OSServices::setMemory(iMemory* service) noexcept
{
    return exchange(memory_, service, &Kv::Platform::stockMemory);
}

iRefCounter* OSServices::setRefCounter(iRefCounter* service) noexcept
{
    return exchange(refCounter_, service, &Kv::Platform::stockRefCounter);
}

iDiagnostics* OSServices::setDiagnostics(iDiagnostics* service) noexcept
{
    return exchange(diagnostics_, service, &Kv::Platform::stockDiagnostics);
}

iSynchronisation* OSServices::setSynchronisation(iSynchronisation* service) noexcept
{
    return exchange(synchronisation_, service, &Kv::Platform::stockSynchronisation);
}

iSystemInfo* OSServices::setSystemInfo(iSystemInfo* service) noexcept
{
    return exchange(systemInfo_, service, &Kv::Platform::stockSystemInfo);
}

iFileSystem* OSServices::setFileSystem(iFileSystem* service) noexcept
{
    return exchange(fileSystem_, service, &Kv::Platform::stockFileSystem);
}

// There is no stock media service: the host, or the reference one, installs it.
iMediaServices* OSServices::setMediaServices(iMediaServices* service) noexcept
{
    return mediaServices_.exchange(service, std::memory_order_acq_rel);
}
