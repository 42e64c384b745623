#pragma once

#include "errors/Component.h"

// Exported by the probe library: the identity as the library's own copy of the code sees it.
quorel::errors::ComponentIdentity ProbeComponentIdentity();
