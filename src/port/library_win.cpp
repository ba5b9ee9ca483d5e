// The load entry of the library on Windows. Start-up work is done by static
// initialisation; the library has no use for per-thread notifications.
#include <windows.h>

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) ::DisableThreadLibraryCalls(instance);
    return TRUE;
}
