#pragma once

/// Marks exception types that cross libraries.
#define KV_ERRORS_API __attribute__((visibility("default")))
