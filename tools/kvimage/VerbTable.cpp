#include "Verb.h"

namespace KvCli {

namespace {

// The help lists the verbs in this order: the picture verbs first, then the platform and help.
const Verb* const verbTable[] = {
    &infoVerb,
    &convertVerb,
    &fieldsVerb,
    &weaveVerb,
    &formatVerb,
    &platformVerb,
    &commandVerb,
    &helpVerb,
};

}  // namespace

std::span<const Verb* const> allVerbs()
{
    return verbTable;
}

const Verb* findVerb(std::string_view name)
{
    for (const Verb* verb : verbTable)
        if (name == verb->name) return verb;
    return nullptr;
}

}  // namespace KvCli
