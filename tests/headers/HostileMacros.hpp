#pragma once

// Names that widespread headers define as macros. None of them may stand in a public header of
// ours.

// <windows.h>
#define min(a, b) hostile macro
#define max(a, b) hostile macro
#define ERROR hostile macro
#define DELETE hostile macro
#define IN hostile macro
#define OUT hostile macro
#define OPTIONAL hostile macro
#define CONST hostile macro
#define VOID hostile macro
#define TRUE hostile macro
#define FALSE hostile macro
#define small hostile macro
#define near hostile macro
#define far hostile macro
#define interface hostile macro
#define GetMessage hostile macro
#define GetObject hostile macro
#define GetUserName hostile macro
#define SendMessage hostile macro
#define CreateFile hostile macro
#define NO_ERROR hostile macro
#define STRICT hostile macro
#define CALLBACK hostile macro
#define PASCAL hostile macro

// <X11/X.h>, <X11/Xlib.h>, <X11/Xutil.h>
#define None hostile macro
#define Success hostile macro
#define Status hostile macro
#define Bool hostile macro
#define True hostile macro
#define False hostile macro
#define Always hostile macro
#define Complex hostile macro
#define Above hostile macro
#define Below hostile macro
#define Convex hostile macro
#define CursorShape hostile macro
#define Unsorted hostile macro
#define GrayScale hostile macro

// <AssertMacros.h>, <objc/objc.h>, <TargetConditionals.h> of Apple
#define check(assertion) hostile macro
#define verify(assertion) hostile macro
#define require(assertion, label) hostile macro
#define YES hostile macro
#define NO hostile macro
#define nil hostile macro
#define Nil hostile macro

// <sys/sysmacros.h>, <termios.h>, <curses.h>, old C libraries
#define major(device) hostile macro
#define minor(device) hostile macro
#define ECHO hostile macro
#define timeout(delay) hostile macro
#define getch() hostile macro
#define linux 1
#define unix 1

// What applications call their own
#define GET hostile macro
#define POST hostile macro
#define PUT hostile macro
#define DEBUG 1
#define LOG(level) hostile macro
#define CHECK(condition) hostile macro
#define ASSERT(condition) hostile macro
#define EXPORT hostile macro
#define API hostile macro
#define VERSION "1"
#define PI hostile macro
