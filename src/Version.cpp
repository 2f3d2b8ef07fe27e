#include <stptxrx/Version.h>

namespace StpTxRx {

#define STPTXRX_STRINGIFY_(x) #x
#define STPTXRX_STRINGIFY(x) STPTXRX_STRINGIFY_(x)

unsigned versionNumber() { return STPTXRX_VERSION; }

const char* versionText() {
  return STPTXRX_STRINGIFY(STPTXRX_VERSION_MAJOR) "." STPTXRX_STRINGIFY(STPTXRX_VERSION_MINOR) "." STPTXRX_STRINGIFY(
      STPTXRX_VERSION_PATCH);
}

}  // namespace StpTxRx
