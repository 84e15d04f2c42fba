// Preloaded into a program: notes the name it was started by, and hands itself on to whatever that
// starts in turn. A program that is linked statically goes unseen.
//
// APP_TEST_STARTED names the file of the notes; each ends with a zero byte, as a name may hold
// anything else.

#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/auxv.h>
#include <unistd.h>

__attribute__((constructor)) static void noteStart()
{
    const char *path = getenv("APP_TEST_STARTED");
    const int notes = path ? open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600) : -1;
    if (notes < 0)
        return;
    const auto *name = reinterpret_cast<const char *>(getauxval(AT_EXECFN));
    const size_t size = strlen(name) + 1;
    if (write(notes, name, size) != static_cast<ssize_t>(size))
        abort();  // a start that is not noted would be one that was not seen
    close(notes);
}
