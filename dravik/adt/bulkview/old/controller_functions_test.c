// SPDX-License-Identifier: Apache-2.0
/* An older caller in C: reads and writes samples through a controller that C++ code gives it. */

#include "dravik/adt/bulkview/old/controller_functions.h"

#include <stdlib.h>
#include <string.h>

/* Doubles every float sample and adds up what it read. Returns how often the controller said something wrong. */
int doubleEverySample(Adt_BulkView_Controller* controller, double* sum);

int doubleEverySample(Adt_BulkView_Controller* controller, double* sum) {
    char* error = NULL;
    int wrong = Adt_BulkView_Controller_Open(controller, &error) != 0;
    wrong += Adt_BulkView_Controller_VtSize(controller, &error) != (int)sizeof(float);
    int const sizeX = Adt_BulkView_Controller_Size(controller, &error, 0);
    int const sizeY = Adt_BulkView_Controller_Size(controller, &error, 1);
    int const sizeZ = Adt_BulkView_Controller_Size(controller, &error, 2);
    *sum = 0;
    for (int i = 0; i < sizeX * sizeY * sizeZ; ++i) {
        int const x = i % sizeX, y = i / sizeX % sizeY, z = i / sizeX / sizeY;
        int const brick = Adt_BulkView_Controller_Brick(controller, &error, 0, x, y, z);
        char* const memory = Adt_BulkView_Controller_Buffer(controller, &error, 0, 0, NULL, brick, 1);
        float* const sample = (float*)(memory + Adt_BulkView_Controller_Offset(controller, &error, 0, x, y, z));
        wrong += error != NULL;
        *sum += *sample;
        *sample *= 2;
    }
    Adt_BulkView_Controller_Close(controller, NULL, 0);
    wrong += Adt_BulkView_Controller_Buffer(controller, &error, 0, 0, NULL, 0, 0) != NULL;
    wrong += strcmp(error, "[ControllerAdapter] Accessor is null.") != 0;
    free(error);
    return wrong;
}
