// The host's thread during a call: it is not cancelled inside one, and a callback that ends it is let through.
#ifndef QUARVEL_COMMON_HOSTTHREAD_H
#define QUARVEL_COMMON_HOSTTHREAD_H

#include <cxxabi.h>
#include <pthread.h>

// pthread_exit and pthread_cancel unwind a thread with this; a handler that does not pass it on ends the process.
using ThreadEnds = abi::__forced_unwind;

// On a function that catches it: what is caught has no object, at which a checking compiler takes offence.
#define QUARVEL_CATCHES_THREAD_ENDS [[gnu::no_sanitize("null")]]

// Holds off the cancellation of the calling thread: a request is kept and acts at the first chance after the object.
class CancelShield {
 public:
  CancelShield() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_before); }
  ~CancelShield() { pthread_setcancelstate(m_before, nullptr); }
  CancelShield(const CancelShield&) = delete;
  CancelShield& operator=(const CancelShield&) = delete;

 private:
  int m_before = PTHREAD_CANCEL_ENABLE;
};

#endif
