// What the C library keeps of the memory that was freed.

#pragma once

// Sets its bounds. Called once, before there are threads.
void limitKeptMemory();

// Gives the system back what is free, wherever it lies: after a large document has been read, whose
// values lay among what stays, and each minute what bursts of events have left between the records.
// Takes the heap's lock for some milliseconds at most.
void returnFreeMemory();
