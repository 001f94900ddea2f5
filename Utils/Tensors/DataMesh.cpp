#include "Utils/Tensors/DataMesh.hpp"

#include "Utils/ErrorHandling/Require.hpp"

DataMesh::DataMesh(const ::Mesh& mesh)
    : mMesh(mesh), mValues(MV::Size(static_cast<std::uint64_t>(mesh.Size()))) {}

DataMesh::DataMesh(const ::Mesh& mesh, const MyVector<double>& values)
    : mMesh(mesh), mValues(values) {
  REQUIRE(values.Size() == mesh.Size(),
          values.Size() << " values for a mesh of " << mesh.Size() << " points");
}
