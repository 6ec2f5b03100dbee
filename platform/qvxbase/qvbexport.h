// What the platform library exports.
#pragma once

#define QVPLATFORM_API __attribute__((visibility("default")))
