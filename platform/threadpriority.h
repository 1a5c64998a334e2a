#pragma once

/// Lets the threads that draw the window go first: the calling thread gets less processor time than they
/// while all want some, and as much as before while they rest. Stays so until the thread ends; what the
/// system refuses is left as it was.
void lowerThreadPriority();
