#include "ole/image/KvImageVersion.h"

const char* imageDllVersionStr()
{
    return "14.0.0.0";
}
