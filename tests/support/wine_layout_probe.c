/* Preloaded into wine64 by wine_layout.sh (and ignored by any other program the
 * launch passes through): prints where the loader's brk heap starts, or, with
 * PROBE_OCCUPY set, takes the page Wine needs for KUSER_SHARED_DATA the way an
 * unlucky heap does and lets Wine go on. */
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

__attribute__((constructor)) static void probe(void) {
    char exe[4096];
    const ssize_t length = readlink("/proc/self/exe", exe, sizeof exe - 1);
    if (length <= 0) return;
    exe[length] = 0;
    const char *name = strrchr(exe, '/');
    if (!name || strcmp(name + 1, "wine64") != 0) return;
    if (getenv("PROBE_OCCUPY")) {
        mmap((void *)0x7ffe0000, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        return;
    }
    printf("%p\n", sbrk(0));
    fflush(stdout);
    _exit(0);
}
