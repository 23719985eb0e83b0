// Started by the Wine prefix fixture before any test, detached from CTest's
// pipes: it makes Wine start the desktop process (explorer.exe /desktop) and
// stays one of the desktop's users until the wineserver ends. Otherwise the
// first test that touches the desktop (an apartment-threaded COM thread does)
// starts that process itself, the process inherits the test's output pipe and
// lives as long as any test uses the desktop, and CTest waits for that pipe
// until the test times out.
// usage: wine_desktop_keeper.exe          keep the desktop; "ready" once it exists
//        wine_desktop_keeper.exe --touch  use the desktop once and end
#include <windows.h>

#include <stdio.h>
#include <string.h>

int main(int argc, char **argv) {
    if (!GetDesktopWindow()) {
        fprintf(stderr, "no desktop window: error %lu\n", GetLastError());
        return 1;
    }
    if (argc > 1 && strcmp(argv[1], "--touch") == 0) return 0;
    printf("ready\n");
    fflush(stdout);
    Sleep(INFINITE);
    return 0;
}
