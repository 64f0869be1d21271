// The tests of the network module watch these calls of the C library or make them fail.
#pragma once

#include <net/if.h>
#include <pthread.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/sem.h>
#include <sys/socket.h>
#include <unistd.h>

#include "support/interposed.h"
#include "support/semaphore_order.h" // has semop

INTERPOSED(accept);
INTERPOSED(fopen);
INTERPOSED(if_nametoindex);
INTERPOSED(ioctl);
INTERPOSED(pthread_create);
INTERPOSED(pthread_setcanceltype);
INTERPOSED(read);
INTERPOSED(recv);
INTERPOSED(recvfrom);
INTERPOSED(select);
INTERPOSED(semget);
INTERPOSED(send);
INTERPOSED(sendto);
INTERPOSED(setsockopt);
INTERPOSED(sleep);
INTERPOSED(socket);
INTERPOSED(usleep);
