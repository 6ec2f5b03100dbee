// What the platform library exports, and which part of an exported class it keeps to itself.
#pragma once

#define QVPLATFORM_API __attribute__((visibility("default")))
#define QVPLATFORM_HIDDEN __attribute__((visibility("hidden")))
