// The module's entry point on Windows.

#include <windows.h>

// The module does nothing per thread, so it asks not to be told about threads. It must not allocate
// here: the loader's lock is held.
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        DisableThreadLibraryCalls(module);
    }
    return TRUE;
}
