#include "foundation/thread.h"

int CThread::start() { return startThread_(CThread::_threadFunc, this); }

int CThread::startThread_(void* (*fn)(void*), void* arg) {
  pthread_t id;
  int rc = pthread_create(&id, nullptr, fn, arg);
  if (rc == 0) {
    m_thread = id;
    m_bStarted = true;
    if (m_type == THREAD_TYPE_DETACHED) pthread_detach(id);
  }
  return rc;
}

void* CThread::_threadFunc(void* arg) {
  CThread* self = static_cast<CThread*>(arg);
  self->onStartup();
  self->process();
  self->onExit();
  return nullptr;
}

int CThread::mutexInit(pthread_mutex_t& mutex, mutextAttr_e attr) {
  pthread_mutexattr_t a;
  int rc = pthread_mutexattr_init(&a);
  if (rc < 0) return rc;
  int type = PTHREAD_MUTEX_NORMAL;
  if (attr == MUTEX_ATTR_ERRORCHECK) type = PTHREAD_MUTEX_ERRORCHECK;
  else if (attr == MUTEX_ATTR_RECURSIVE) type = PTHREAD_MUTEX_RECURSIVE;
  rc = pthread_mutexattr_settype(&a, type);
  if (rc < 0) return rc;
  pthread_mutex_init(&mutex, &a);
  pthread_mutexattr_destroy(&a);
  return rc;
}
