// kvimage: the picture library's command-line tool. See Verb.h for how verbs plug in.

#include <string>
#include <vector>

#include "Dispatcher.h"

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    return KvCli::dispatch(args);
}
