#pragma once
// Marks what the library exports: the browser's entry points, the owner's classes, and the classes
// whose type identity must be the same on both sides of the library boundary.

#define VELMORA_EXPORT __attribute__((visibility("default")))
