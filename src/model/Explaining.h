#pragma once

#include "explain/Explainer.h"

#include <memory>

namespace brenvo {

// The system's answers the explanations read (the profile, running applications, the type names the
// desktop knows), around a given catalogue. The window and the command line explain through it alike.
ExplainContext systemExplainContext(std::shared_ptr<const AppCatalog> catalog);

} // namespace brenvo
