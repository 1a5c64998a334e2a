#pragma once

/// Has the window drawn by Qt Quick's own painter where OpenGL would be emulated on the processor, which
/// takes nearly three times the memory and starts later. The environment's QT_QUICK_BACKEND goes first;
/// empty, it asks for OpenGL. To be called before the first window is made.
void chooseRenderer();
