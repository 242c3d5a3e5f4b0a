#include "platform/log_outputs.hpp"

#include <windows.h>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {

void reportEvent(const std::string& source, EventType type, const std::string& text) {
    const win32::EventSource handle(RegisterEventSourceA(nullptr, source.c_str()));
    if (!handle) return;
    const char* strings[] = {text.c_str()};
    ReportEventA(handle.get(), static_cast<WORD>(type), 0, 0, nullptr, 1, 0, strings, nullptr);
}

void debugOutput(const std::string& text) { OutputDebugStringA(text.c_str()); }

std::size_t textLineEndSize() { return 2; }

}  // namespace velk::updater::platform
