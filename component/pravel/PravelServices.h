#pragma once

// What Pravel's commands need from the rest of the library: the message boxes, the texts, the
// host application, the two windows and the commands' pictures. Tests put their own in place.

#include "host/api/Host.h"
#include "quorel/Com.h"
#include "util/MessageUi.h"

#include <cstdint>
#include <memory>
#include <string>

namespace quorel::component::pravel {

enum class PravelWindow { Aggregation, Query };

// Text ids of the commands' captions and tooltips.
inline constexpr std::int16_t kTextAggregationCaption = 320;
inline constexpr std::int16_t kTextAggregationTooltip = 321;
inline constexpr std::int16_t kTextQueryCaption = 322;
inline constexpr std::int16_t kTextQueryTooltip = 323;

class IPravelServices {
public:
    virtual ~IPravelServices() = default;
    virtual util::IMessageUi& Ui() = 0;
    // The text of the current language; the empty text when there is none.
    virtual std::string Text(std::int16_t id) = 0;
    // The host application the commands were created with (the windows' g_app).
    virtual void SetApplication(std::shared_ptr<host::IApplication> app) = 0;
    // Shows the window modally and returns when it is closed. May throw.
    virtual void ShowWindow(PravelWindow window) = 0;
    virtual com::Picture CommandPicture(PravelWindow window) = 0;
};

// The real services: Qt windows and boxes, the text database beside the library.
IPravelServices& DefaultPravelServices();

IPravelServices& PravelServices();
// nullptr restores the real ones.
void SetPravelServices(IPravelServices* services);

// The command's picture drawn by code, 32 x 32, as the host takes it.
com::Picture DrawCommandPicture(PravelWindow window);

} // namespace quorel::component::pravel
