// Thread base class, mutex set-up, scope guards and the process singleton.
#pragma once

#include <pthread.h>

#include <exception>

enum threadType_e { THREAD_TYPE_DETACHED = 1 };

enum mutextAttr_e { MUTEX_ATTR_NORMAL = 0, MUTEX_ATTR_ERRORCHECK = 1, MUTEX_ATTR_RECURSIVE = 2 };

// A thread whose body is process(). The most derived constructor calls
// start() last. There is no join: a derived class tells its end by a flag.
//
// The destructor does not cancel the thread: a detached thread's id may
// already belong to another thread once it has ended, and cancelling inside
// library calls leaves their state undefined. A derived class must see its
// thread out before it is destroyed.
class CThread {
 public:
  explicit CThread(threadType_e type) : m_thread(), m_type(type) {}
  virtual ~CThread() = default;
  CThread(const CThread&) = delete;
  CThread& operator=(const CThread&) = delete;

  virtual void process() = 0;
  virtual void onStartup() {}
  virtual void onExit() {}

  // Creates the thread; a failed creation leaves the object without one.
  // Returns the result of pthread_create. A class whose threads must not
  // hold on to the object itself (the monitor) starts them its own way.
  virtual int start();
  bool isStarted() const { return m_bStarted; }

  static void* _threadFunc(void* arg);
  static int mutexInit(pthread_mutex_t& mutex, mutextAttr_e attr);

 protected:
  // Creates a thread on fn(arg), detached for THREAD_TYPE_DETACHED, and
  // keeps its id in m_thread. Returns the result of pthread_create.
  int startThread_(void* (*fn)(void*), void* arg);

  pthread_t m_thread;
  threadType_e m_type;

 private:
  bool m_bStarted = false;
};

// pthread_mutex_lock for the guard's scope; the result is not looked at.
class ThreadSingleLock {
 public:
  explicit ThreadSingleLock(pthread_mutex_t& m) : m_mutex(&m) { pthread_mutex_lock(m_mutex); }
  ~ThreadSingleLock() { pthread_mutex_unlock(m_mutex); }
  ThreadSingleLock(const ThreadSingleLock&) = delete;
  ThreadSingleLock& operator=(const ThreadSingleLock&) = delete;

 private:
  pthread_mutex_t* m_mutex;
};

// pthread_mutex_trylock; a busy mutex (held by any thread, this one too)
// throws a std::exception and nothing is held.
class ThreadSingleTryLock {
 public:
  explicit ThreadSingleTryLock(pthread_mutex_t& m) : m_mutex(&m) {
    if (pthread_mutex_trylock(m_mutex) != 0) throw std::exception();
  }
  ~ThreadSingleTryLock() { pthread_mutex_unlock(m_mutex); }
  ThreadSingleTryLock(const ThreadSingleTryLock&) = delete;
  ThreadSingleTryLock& operator=(const ThreadSingleTryLock&) = delete;

 private:
  pthread_mutex_t* m_mutex;
};

// Read and write holds of a rwlock; the results are not looked at: a thread
// that holds the write lock and builds a ThreadReadLock goes on, and the
// read guard's destructor releases the write hold.
class ThreadReadLock {
 public:
  explicit ThreadReadLock(pthread_rwlock_t& l) : m_lock(&l) { pthread_rwlock_rdlock(m_lock); }
  ~ThreadReadLock() { pthread_rwlock_unlock(m_lock); }
  ThreadReadLock(const ThreadReadLock&) = delete;
  ThreadReadLock& operator=(const ThreadReadLock&) = delete;

 private:
  pthread_rwlock_t* m_lock;
};

class ThreadWriteLock {
 public:
  explicit ThreadWriteLock(pthread_rwlock_t& l) : m_lock(&l) { pthread_rwlock_wrlock(m_lock); }
  ~ThreadWriteLock() { pthread_rwlock_unlock(m_lock); }
  ThreadWriteLock(const ThreadWriteLock&) = delete;
  ThreadWriteLock& operator=(const ThreadWriteLock&) = delete;

 private:
  pthread_rwlock_t* m_lock;
};

// The one process-wide T, built by the first caller and never destroyed.
template <class T>
class CGlobalsSingleton {
 public:
  static T* get() {
    T* p = __atomic_load_n(&m_instance, __ATOMIC_ACQUIRE);
    if (p) return p;
    pthread_mutex_lock(&m_lock);
    p = m_instance;
    if (!p) {
      p = new T();
      __atomic_store_n(&m_instance, p, __ATOMIC_RELEASE);
    }
    pthread_mutex_unlock(&m_lock);
    return p;
  }

 private:
  static pthread_mutex_t m_lock;
  static T* m_instance;
};

template <class T>
pthread_mutex_t CGlobalsSingleton<T>::m_lock = PTHREAD_MUTEX_INITIALIZER;
template <class T>
T* CGlobalsSingleton<T>::m_instance = nullptr;
