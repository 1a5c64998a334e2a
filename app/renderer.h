#pragma once

/// Has the window drawn by Qt Quick's own painter where OpenGL fails or would be emulated on the processor,
/// which takes nearly three times the memory and starts later. The environment's QT_QUICK_BACKEND goes first;
/// empty, it asks for OpenGL. To be called between the application object and the first window.
void chooseRenderer();
