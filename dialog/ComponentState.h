#pragma once

// The component-wide values the dialog shares with the criterion run and the metadata file:
// the host application, the chosen layer and the chosen kind (those the run reads), and the
// shapefile last picked in the open dialog. They outlive the dialog: closing and opening it
// again keeps them.

#include "criterion/RunCriterion.h"

#include <string>

namespace quorel::dialog {

struct ComponentState : criterion::ComponentState {
    // The folder (no trailing separator) and base name of the shapefile last picked.
    std::string g_shape_folder;
    std::string g_shape_name;
};

} // namespace quorel::dialog
