#include "tests/errors/ComponentProbe.h"

quorel::errors::ComponentIdentity ProbeComponentIdentity() {
    return quorel::errors::OwnComponent();
}
