// The kinds of mutex that mutexInit makes.
#include <gtest/gtest.h>

#include <pthread.h>
#include <time.h>

#include <cerrno>

#include "foundation/thread.h"

namespace {

// Result of a second, time-limited lock by the thread that holds the mutex.
int relock_result(mutextAttr_e attr) {
  pthread_mutex_t m;
  EXPECT_EQ(CThread::mutexInit(m, attr), 0);
  EXPECT_EQ(pthread_mutex_lock(&m), 0);
  struct timespec until;
  clock_gettime(CLOCK_REALTIME, &until);
  until.tv_nsec += 50 * 1000 * 1000;
  if (until.tv_nsec >= 1000000000L) until.tv_sec += 1, until.tv_nsec -= 1000000000L;
  int rc = pthread_mutex_timedlock(&m, &until);
  if (rc == 0) pthread_mutex_unlock(&m);
  pthread_mutex_unlock(&m);
  pthread_mutex_destroy(&m);
  return rc;
}

TEST(MutexInit, EachKindAndUnknownValuesGiveANormalMutex) {
  EXPECT_EQ(relock_result(MUTEX_ATTR_RECURSIVE), 0);
  EXPECT_EQ(relock_result(MUTEX_ATTR_ERRORCHECK), EDEADLK);
  // A normal mutex just blocks its holder: the timed lock runs out.
  EXPECT_EQ(relock_result(MUTEX_ATTR_NORMAL), ETIMEDOUT);
  EXPECT_EQ(relock_result(static_cast<mutextAttr_e>(3)), ETIMEDOUT);
}

}  // namespace
