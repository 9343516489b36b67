#include "host/include2/TesselRefcounted.h"

namespace Corvane {

RefImpl::~RefImpl() = default;

} // namespace Corvane
