/* Stands in for the module's import library: functions of the same names, which pass each call on
 * to the module that was loaded. */
#include "loaded_module.h"

#include <stdio.h>
#include <string.h>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

#include <h323nat.h>

/* X(function, parameters, arguments) for each function with a result. The pointers have the
 * header's calling convention, which on 32-bit Windows is not the one of the system's functions. */
#define FUNCTIONS(X)                                                                               \
    X(H323IsGatewayDLL, (void), ())                                                                \
    X(H323InitializeDLL, (const HostCallbackTable* table), (table))                                \
    X(H323SetRewriteMode, (uint32_t mode), (mode))                                                 \
    X(H323SetTranslationScope, (uint32_t scope, uint32_t calls), (scope, calls))                   \
    X(TarvexActivateInboundMapping, (uint32_t publishedAddress), (publishedAddress))               \
    X(TarvexPacketOnReceiving, (HostContext * context, PacketDescriptor * descriptor),             \
      (context, descriptor))                                                                       \
    X(TarvexPacketOnSending, (HostContext * context, PacketDescriptor * descriptor),               \
      (context, descriptor))

#define PASS_ON(name, parameters, arguments)                                                       \
    static uint32_t(H323NAT_CALL* loaded##name) parameters;                                        \
    uint32_t H323NAT_CALL name parameters {                                                        \
        return loaded##name arguments;                                                             \
    }
FUNCTIONS(PASS_ON)

static void(H323NAT_CALL* loadedH323SetObserver)(const H323Observer* observer);
void H323NAT_CALL H323SetObserver(const H323Observer* observer) {
    loadedH323SetObserver(observer);
}

/* ISO C knows no cast from an object pointer, such as dlsym gives, to a function pointer. */
static int find(void* module, const char* name, void* function) {
#if defined(_WIN32)
    const FARPROC symbol = GetProcAddress(module, name);
#else
    void* const symbol = dlsym(module, name);
#endif
    if (symbol == NULL) {
        fprintf(stderr, "the module has no %s: it is another one, or an older version\n", name);
        return 0;
    }
    memcpy(function, &symbol, sizeof symbol);
    return 1;
}

int loadModule(const char* file) {
#if defined(_WIN32)
    void* const module = LoadLibraryA(file);
#else
    void* const module = dlopen(file, RTLD_NOW | RTLD_LOCAL);
#endif
    if (module == NULL) {
        fprintf(stderr,
                "%s cannot be loaded: give the path of h323nat.dll or libh323nat.so, built "
                "for the same processor as this program\n",
                file);
        return 0;
    }
#define FIND(name, parameters, arguments) &&find(module, #name, &loaded##name)
    return 1 FUNCTIONS(FIND) && find(module, "H323SetObserver", &loadedH323SetObserver);
}
