#include "KRClient/UserInterface/LocalCache/IClientProjectInfoLoader.h"

namespace KRC::UI::LocalCache {

// Out of line, so that the interface's type information lives in the library.
IClientProjectInfoLoader::IClientProjectInfoLoader() = default;
IClientProjectInfoLoader::~IClientProjectInfoLoader() = default;

}  // namespace KRC::UI::LocalCache
