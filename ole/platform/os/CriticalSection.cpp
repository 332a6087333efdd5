#include "ole/platform/os/CriticalSection.h"

CriticalSection::CriticalSection() : CriticalSection("") {}

CriticalSection::CriticalSection(const char* name)
    : cs_(OS()->synchronisation()->createCriticalSection(0)), name_(name ? name : "")
{
}

CriticalSection::~CriticalSection() = default;

void CriticalSection::enter()
{
    cs_->enter();
}

bool CriticalSection::tryEnter()
{
    return cs_->tryEnter();
}

void CriticalSection::leave()
{
    cs_->leave();
}
