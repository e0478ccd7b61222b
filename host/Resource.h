// Identifiers of the program's resources. Also read by the resource compiler. The dialogs and menus have theirs in
// diag/Resource.h.
#pragma once

#define IDR_TYPELIB          1
#define IDR_TYPELIB_32       2   // the same library for 32-bit clients
#define IDR_APPID            101 // registration script of the application
#define IDR_MORVANEUSBROUTER 102 // registration script of the class
#define IDR_TYPELIB_SCRIPT   105 // registration script of the type library
#define IDR_INTERFACE        106 // registration script of the interface
