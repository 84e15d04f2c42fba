// What the C library keeps of the memory that was freed.

#pragma once

// Sets its bounds. Called once, before there are threads.
void limitKeptMemory();

// Gives the system back what is free, wherever it lies: for after a large document has been read,
// whose values lay among what stays. Takes the heap's lock for some milliseconds at most.
void returnFreeMemory();
