#ifndef CONTROLLERFACTORY_H
#define CONTROLLERFACTORY_H

#include <QList>
#include <QMap>
#include <QObject>
#include <QSharedPointer>

class IEndpointController;

// The endpoint controllers of the admin context by their first path word. Lives for one
// request, like the router that owns it.
class ControllerFactory : public QObject
{
    Q_OBJECT

public:
    explicit ControllerFactory(QObject *parent = nullptr);
    ~ControllerFactory() override;

    // Takes ownership. A later controller with the same word wins the word.
    void registerController(IEndpointController *controller);
    // Exact, case-sensitive; null for an unknown word.
    IEndpointController *getController(const QString &endpoint) const;

private:
    QList<QSharedPointer<IEndpointController>> m_controllers;  // owns
    QMap<QString, IEndpointController *> m_controllerMap;
};

#endif
