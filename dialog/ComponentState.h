#pragma once

// The component-wide values the dialog shares with the criterion run and the metadata file:
// the host application, the chosen layer, the last shapefile picked and the chosen kind. They
// outlive the dialog: closing and opening it again keeps them.

#include "criterion/FuzzyKind.h"
#include "host/api/Host.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quorel::dialog {

struct ComponentState {
    std::shared_ptr<host::IApplication> g_app;
    // Set only by choosing an entry of Lst_shapes.
    std::string g_layer_name;
    std::string g_layer_path;
    std::int32_t g_layer_index = 0;
    // The shapefile last picked in the open dialog: its folder (no trailing separator) and base
    // name.
    std::string g_shape_folder;
    std::string g_shape_name;
    criterion::FuzzyNumberKind kind = criterion::kNoKind;
};

} // namespace quorel::dialog
