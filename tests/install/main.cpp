// Compiles against the installed headers and links the installed library; exits 0 on success.
#include <stptxrx/runtime/Export.h>

#include <cstdio>

#ifndef STPTXRX_EXPORT
#error "STPTXRX_EXPORT is not defined by the installed <stptxrx/runtime/Export.h>"
#endif

int main() {
    std::puts("stptxrx consumer: ok");
    return 0;
}
