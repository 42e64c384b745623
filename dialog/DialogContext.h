#pragma once

#include "dialog/ComponentState.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quorel::errors {
class ErrorLog;
} // namespace quorel::errors
namespace quorel::fzy {
class IO_fzyext;
} // namespace quorel::fzy
namespace quorel::lang {
class Module1;
} // namespace quorel::lang
namespace quorel::util {
class IMessageUi;
} // namespace quorel::util

namespace quorel::dialog {

// The open-file dialog: title and filters ("description (pattern)"); the chosen path, or
// nullopt when the user cancelled.
using FileChooser = std::function<std::optional<std::string>(
    const std::string& title, const std::vector<std::string>& filters)>;

// The system file dialog.
std::optional<std::string> SystemFileChooser(const std::string& title,
                                             const std::vector<std::string>& filters);

// The choice of one layer of a file of several (a GeoPackage's tables): the chosen name, or
// nullopt when the user cancelled.
using LayerChooser = std::function<std::optional<std::string>(
    const std::string& title, const std::vector<std::string>& layers)>;

// A list to pick from in a small modal window.
std::optional<std::string> SystemLayerChooser(const std::string& title,
                                              const std::vector<std::string>& layers);

// What the component's windows work with: its state and the services that outlive a window.
struct DialogContext {
    ComponentState& state;
    util::IMessageUi& ui;
    lang::Module1& module1;
    errors::ErrorLog& log;
    fzy::IO_fzyext& fzy;
    FileChooser chooseFile = SystemFileChooser;
    LayerChooser chooseLayer = SystemLayerChooser;
};

} // namespace quorel::dialog
