/// @file export.h
/// Symbol visibility. The library, the bundles and the services are built with
/// hidden visibility; these two words mark what leaves a shared library.
#pragma once

/// Marks a class, function or variable of this library that hosts, bundles and
/// services may use.
#define ZO_EXPORT __attribute__((visibility("default")))

/// Marks what a bundle or service library hands out: its factory functions.
#define ZO_PLUGIN_EXPORT __attribute__((visibility("default")))
