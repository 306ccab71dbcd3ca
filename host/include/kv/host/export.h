#pragma once

/// Marks what libkvhost exports; exception types that cross libraries bear it too.
#define KV_HOST_API __attribute__((visibility("default")))
