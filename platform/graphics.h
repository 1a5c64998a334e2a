#pragma once

/// Whether OpenGL can be drawn by a graphics processor that this process may use. True where the system
/// doesn't tell.
[[nodiscard]] bool hasGraphicsProcessor();
