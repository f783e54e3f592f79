#include "controllers/controllerfactory.h"

#include "controllers/attendancecontroller.h"
#include "controllers/reportcontroller.h"
#include "controllers/workcontroller.h"

ControllerFactory::ControllerFactory(QObject *parent)
    : QObject(parent)
{
    registerController(new ReportController());
    registerController(new AttendanceController());
    registerController(new WorkController());
}

ControllerFactory::~ControllerFactory() = default;

void ControllerFactory::registerController(IEndpointController *controller)
{
    m_controllers.append(QSharedPointer<IEndpointController>(controller));
    const QStringList words = controller->endpoints();
    for (const QString &word : words)
        m_controllerMap[word] = controller;
}

IEndpointController *ControllerFactory::getController(const QString &endpoint) const
{
    return m_controllerMap.value(endpoint, nullptr);
}
