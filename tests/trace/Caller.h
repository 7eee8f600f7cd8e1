// The host of the trace's tests, as its two programs know it.
#ifndef QUARVEL_TESTS_TRACE_CALLER_H
#define QUARVEL_TESTS_TRACE_CALLER_H

extern "C" int RunCaller(int argc, char** argv);

#endif
