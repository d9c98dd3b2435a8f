/* An older caller in C: reads and writes samples through a controller that C++ code gives it. */

#include "dravik/adt/bulkview/old/controller_functions.h"

#include <stdlib.h>
#include <string.h>

/* Doubles every float sample and adds up what it read. Returns 0, or the number of the line that failed. */
int doubleEverySample(Adt_BulkView_Controller* controller, double* sum);

int doubleEverySample(Adt_BulkView_Controller* controller, double* sum) {
    char* error = NULL;
    if (Adt_BulkView_Controller_Open(controller, &error) != 0 || error != NULL ||
        Adt_BulkView_Controller_VtSize(controller, &error) != (int)sizeof(float)) {
        return __LINE__;
    }
    int size[3];
    for (int axis = 0; axis < 3; ++axis) {
        size[axis] = Adt_BulkView_Controller_Size(controller, &error, axis);
    }
    *sum = 0;
    for (int z = 0; z < size[2]; ++z) {
        for (int y = 0; y < size[1]; ++y) {
            for (int x = 0; x < size[0]; ++x) {
                int const brick = Adt_BulkView_Controller_Brick(controller, &error, 0, x, y, z);
                char* const memory = Adt_BulkView_Controller_Buffer(controller, &error, 0, 0, NULL, brick, 1);
                if (memory == NULL || error != NULL) {
                    return __LINE__;
                }
                float* const sample = (float*)(memory + Adt_BulkView_Controller_Offset(controller, &error, 0, x, y, z));
                *sum += *sample;
                *sample *= 2;
            }
        }
    }
    Adt_BulkView_Controller_Close(controller, NULL, 0);
    if (Adt_BulkView_Controller_Buffer(controller, &error, 0, 0, NULL, 0, 0) != NULL || error == NULL) {
        return __LINE__;
    }
    int const isExpected = strcmp(error, "[ControllerAdapter] Accessor is null.") == 0;
    free(error);
    return isExpected ? 0 : __LINE__;
}
