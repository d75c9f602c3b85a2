#pragma once

#include <string>

namespace vark {

/// What the desktop around a program in a terminal does for it, by its own tools. Functions only; any thread.
/// Without a desktop they do nothing and say so.
struct DesktopTools {
    /// Whether the desktop was asked to show the address, one of http or https. The browser lives on by
    /// itself.
    static bool openInBrowser(const std::string& address);
    /// Whether the clipboard now holds the text.
    static bool copyToClipboard(const std::string& text);
};

}  // namespace vark
